#pragma once

#include <cstddef>
#include <string>

namespace Korvane {

/// The text with single spaces, broken so that lines end within 80 columns, and a line end. The first line
/// starts at column `indent`, and the others are indented by as much.
[[nodiscard]] std::string wrapped(const std::string& text, std::size_t indent = 0);

} // namespace Korvane
