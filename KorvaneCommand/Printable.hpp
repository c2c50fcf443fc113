#pragma once

#include <string>

namespace Korvane {

/// The text with "?" for control characters, those that turn the reading direction included, and for what is
/// not UTF-8: names come from anywhere, and none may steer the terminal or pass for another.
[[nodiscard]] std::string printable(const std::string& text);

/// "6.1 MiB"
[[nodiscard]] std::string byteCount(double bytes);

} // namespace Korvane
