#include "KorvaneCore/platform/LocalCalendar.hpp"

#include <fmt/format.h>

#include <ctime>
#include <tuple>

namespace Korvane::LocalCalendar {

namespace {

// Clocks change on quarters of an hour, and no calendar has skipped two days running.
constexpr std::time_t step = std::time_t{15} * 60;
constexpr std::time_t searchLimit = std::time_t{3} * 24 * 60 * 60;

std::optional<std::tm> localTime(std::time_t instant) {
    ::tzset(); // localtime_r alone need not notice a changed zone
    std::tm local{};
    if (::localtime_r(&instant, &local) == nullptr)
        return std::nullopt;
    return local;
}

std::optional<Day> dayOf(std::time_t instant) {
    const auto local = localTime(instant);
    if (!local)
        return std::nullopt;
    return Day{local->tm_year + 1900, local->tm_mon + 1, local->tm_mday};
}

std::time_t wholeSeconds(Time date) {
    return std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(date));
}

} // namespace

Day day(Time date) {
    return dayOf(wholeSeconds(date)).value_or(Day{});
}

std::string dayKey(Time date) {
    const auto [year, month, dayOfMonth] = day(date);
    return fmt::format("{:04}-{:02}-{:02}", year, month, dayOfMonth);
}

std::optional<Time> nextStartOfDay(Time now) {
    const std::time_t start = wholeSeconds(now);
    const auto today = dayOf(start);
    if (!today)
        return std::nullopt;

    std::time_t before = start;
    for (std::time_t after = start - start % step + step; after < start + searchLimit;
         before = after, after += step) {
        if (const auto next = dayOf(after); !next || *next <= *today)
            continue;
        // The day changes in (before, after]: halve down to the second.
        std::time_t earlier = before;
        std::time_t later = after;
        while (later - earlier > 1) {
            const std::time_t middle = earlier + (later - earlier) / 2;
            (dayOf(middle) > today ? later : earlier) = middle;
        }
        return std::chrono::system_clock::from_time_t(later);
    }
    return std::nullopt;
}

int wholeYears(Time from, Time to) {
    const auto [fromYear, fromMonth, fromDay] = day(from);
    const auto [toYear, toMonth, toDay] = day(to);
    const int years = toYear - fromYear;
    const auto anniversary = std::tuple(fromMonth, fromDay);
    const auto today = std::tuple(toMonth, toDay);
    if (years > 0 && today < anniversary)
        return years - 1;
    if (years < 0 && today > anniversary)
        return years + 1;
    return years;
}

} // namespace Korvane::LocalCalendar
