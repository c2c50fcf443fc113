#pragma once

#include <string>

namespace Korvane {

/// The text with "?" for control characters and for what is not UTF-8: names come from anywhere, and none may
/// steer the terminal.
[[nodiscard]] std::string printable(const std::string& text);

/// "6.1 MiB"
[[nodiscard]] std::string byteCount(double bytes);

} // namespace Korvane
