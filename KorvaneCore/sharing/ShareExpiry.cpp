#include "KorvaneCore/sharing/ShareExpiry.hpp"

#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/LocalCalendar.hpp"
#include "KorvaneCore/sharing/ShareError.hpp"

#include <charconv>
#include <optional>

namespace Korvane {

namespace {

using Time = std::chrono::system_clock::time_point;
using Kind = ShareError::Kind;

constexpr std::int64_t mostUnits = 100'000; // far below what a date can hold

std::optional<std::chrono::seconds> unitOf(char letter) {
    switch (letter) {
    case 'm':
        return std::chrono::minutes(1);
    case 'h':
        return std::chrono::hours(1);
    case 'd':
        return std::chrono::days(1);
    case 'w':
        return std::chrono::weeks(1);
    default:
        return std::nullopt;
    }
}

std::optional<std::chrono::seconds> span(std::string_view text) {
    const auto unit = text.empty() ? std::nullopt : unitOf(text.back());
    if (!unit)
        return std::nullopt;
    text.remove_suffix(1);
    std::int64_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc() || end != text.data() + text.size() || count < 0 || count > mostUnits)
        return std::nullopt;
    return count * *unit;
}

/// No zone is a day or more from UTC, so the first midnight after the day's start there, or the one after
/// that, ends it here.
std::optional<Time> endOfDay(std::string_view day) {
    const auto midnight = KRJSON::parseDate(std::string(day) + "T00:00:00.000Z");
    if (!midnight)
        return std::nullopt;
    auto start = LocalCalendar::nextStartOfDay(*midnight - std::chrono::days(1) - std::chrono::hours(12));
    while (start && LocalCalendar::dayKey(*start) <= day)
        start = LocalCalendar::nextStartOfDay(*start);
    return start;
}

} // namespace

Time shareExpiry(std::string_view text, Time now) {
    constexpr std::size_t dateLength = 10; // yyyy-MM-dd
    std::optional<Time> expiry;
    if (const auto time = span(text))
        expiry = now + *time;
    else if (text.size() == dateLength)
        expiry = endOfDay(text);
    else
        expiry = KRJSON::parseDate(std::string(text));
    if (!expiry)
        throw ShareError(Kind::badExpiry);
    if (*expiry <= now)
        throw ShareError(Kind::pastExpiry);
    return std::chrono::floor<std::chrono::milliseconds>(*expiry);
}

} // namespace Korvane
