#pragma once

#include <chrono>
#include <string_view>

namespace Korvane {

/// When a share expires: a time from now ("30m", "12h", "7d", "2w"), the end of a day in the user's time zone
/// ("2026-12-24"), or an ISO-8601 time with an offset. In whole milliseconds. Throws ShareError (badExpiry,
/// pastExpiry).
[[nodiscard]] std::chrono::system_clock::time_point shareExpiry(std::string_view text,
                                                                std::chrono::system_clock::time_point now);

} // namespace Korvane
