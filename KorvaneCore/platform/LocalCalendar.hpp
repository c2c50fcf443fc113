#pragma once

#include <chrono>
#include <compare>
#include <optional>
#include <string>

/// Days of the Gregorian calendar in the user's time zone: the one TZ names (a zone or a POSIX rule), else
/// the system's, as the C library reads them. A change of zone is followed at the next call. Callable from
/// any thread.
namespace Korvane::LocalCalendar {

using Time = std::chrono::system_clock::time_point;

struct Day {
    int year = 0;
    int month = 0; ///< from 1
    int day = 0;   ///< from 1

    auto operator<=>(const Day&) const = default;
};

/// The day the date lies in; year 0 for a date beyond the C library's calendar.
[[nodiscard]] Day day(Time date);

/// "%04d-%02d-%02d" of the date's year, month and day.
[[nodiscard]] std::string dayKey(Time date);

/// The next instant after `now` at which a day starts: 00:00, the first of the two where clocks repeat it, or
/// the end of the gap where clocks skip it. None when the calendar has no such date.
[[nodiscard]] std::optional<Time> nextStartOfDay(Time now);

/// Whole years from one date to another, by calendar day; negative when `to` comes first.
[[nodiscard]] int wholeYears(Time from, Time to);

} // namespace Korvane::LocalCalendar
