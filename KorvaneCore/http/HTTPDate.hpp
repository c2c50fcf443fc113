#pragma once

#include <chrono>
#include <optional>
#include <string>

/// Dates in HTTP headers (RFC 9110, section 5.6.7).
namespace Korvane::HTTPDate {

/// None when the text is no date.
[[nodiscard]] std::optional<std::chrono::system_clock::time_point> read(const std::string& text);

} // namespace Korvane::HTTPDate
