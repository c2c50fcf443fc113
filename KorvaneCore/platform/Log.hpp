#pragma once

#include <string_view>

/// The program's log, on standard error. One logger a category, named "app.korvane.<category>"; KORVANE_LOG
/// sets the lowest level shown: debug, info, warning (default), error or off. Callable from any thread.
/// Messages never hold keys, passwords, tokens or decrypted content.
namespace Korvane::Log {

void debug(std::string_view category, std::string_view message);
void info(std::string_view category, std::string_view message);
void warning(std::string_view category, std::string_view message);
void error(std::string_view category, std::string_view message);

} // namespace Korvane::Log
