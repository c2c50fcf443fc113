#include "KorvaneCore/json/KRJSON.hpp"

#include "KorvaneCore/json/JSONParser.hpp"

#include <boost/core/demangle.hpp>
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/serializer.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

namespace Korvane::KRJSON {

namespace {

/// Reads exactly `digits` decimal digits off the front of `text`.
bool takeNumber(std::string_view& text, std::size_t digits, int& number) {
    if (text.size() < digits)
        return false;
    const auto* end = text.data() + digits;
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || text.front() == '-')
        return false;
    text.remove_prefix(digits);
    return true;
}

bool take(std::string_view& text, std::string_view anyOf) {
    if (text.empty() || anyOf.find(text.front()) == std::string_view::npos)
        return false;
    text.remove_prefix(1);
    return true;
}

/// An optional fraction, rounded to the millisecond; digits beyond the tenth do not count.
std::optional<std::chrono::milliseconds> takeFraction(std::string_view& text) {
    if (!take(text, ".,"))
        return std::chrono::milliseconds(0);
    double value = 0;
    double unit = 1;
    std::size_t digits = 0;
    for (; !text.empty() && text.front() >= '0' && text.front() <= '9'; text.remove_prefix(1)) {
        unit /= 10;
        if (++digits <= 10)
            value += unit * (text.front() - '0');
    }
    if (digits == 0)
        return std::nullopt;
    return std::chrono::round<std::chrono::milliseconds>(std::chrono::duration<double>(value));
}

/// "Z", "+hh:mm", "+hhmm" or "+hh" at the end of a date.
std::optional<std::chrono::minutes> takeOffset(std::string_view& text) {
    if (take(text, "Zz"))
        return std::chrono::minutes(0);
    const bool west = !text.empty() && text.front() == '-';
    int hours = 0;
    int minutes = 0;
    if (!take(text, "+-") || !takeNumber(text, 2, hours))
        return std::nullopt;
    if (!text.empty()) {
        take(text, ":");
        if (!takeNumber(text, 2, minutes))
            return std::nullopt;
    }
    if (hours > 23 || minutes > 59)
        return std::nullopt;
    const auto offset = std::chrono::hours(hours) + std::chrono::minutes(minutes);
    return west ? -offset : offset;
}

/// Whole years that a count of nanoseconds from 1970 in 64 bits can hold.
bool isRepresentable(std::chrono::year year) {
    return year > std::chrono::year(1677) && year < std::chrono::year(2262);
}

/// Memory for parsed texts, any of which may be a token.
class WipingResource final : public boost::json::memory_resource {
    void* do_allocate(std::size_t size, std::size_t alignment) override {
        return ::operator new(size, std::align_val_t(alignment));
    }

    void do_deallocate(void* memory, std::size_t size, std::size_t alignment) override {
        ::explicit_bzero(memory, size);
        ::operator delete(memory, std::align_val_t(alignment));
    }

    [[nodiscard]] bool do_is_equal(const memory_resource& other) const noexcept override {
        return this == &other;
    }
};

/// Memory for one document: taken in growing blocks, given back all at once.
boost::json::storage_ptr documentStorage(std::size_t textSize) {
    static WipingResource wiping;
    return boost::json::make_shared_resource<boost::json::monotonic_resource>(
        std::clamp<std::size_t>(textSize, 1 << 10, 1 << 20), &wiping);
}

} // namespace

Document::Document(std::string_view text)
    : storage_(documentStorage(text.size())), value_(parseJSON(text, storage_)) {}

void wipe(Value& value) noexcept {
    if (auto* text = value.if_string())
        ::explicit_bzero(text->data(), text->size());
    else if (auto* items = value.if_array())
        std::for_each(items->begin(), items->end(), [](Value& item) { wipe(item); });
    else if (auto* members = value.if_object())
        for (auto& member : *members)
            wipe(member.value());
}

Value parse(std::string_view text) {
    return parseJSON(text, {});
}

std::string serialise(const Value& value) {
    constexpr std::size_t firstBlock = 1 << 10;
    boost::json::serializer serializer;
    serializer.reset(&value);
    std::string text(firstBlock, '\0');
    std::size_t filled = serializer.read(text.data(), text.size()).size();
    while (!serializer.done()) {
        std::string longer(2 * text.size(), '\0');
        text.copy(longer.data(), filled);
        ::explicit_bzero(text.data(), filled);
        text = std::move(longer);
        filled += serializer.read(text.data() + filled, text.size() - filled).size();
    }
    text.resize(filled);
    return text;
}

std::string formatDate(Date date) {
    using namespace std::chrono;
    const auto instant = round<milliseconds>(date);
    const auto midnight = floor<days>(instant);
    const year_month_day day(midnight);
    const hh_mm_ss time(instant - midnight);
    std::array<char, 40> text{};
    const int length = std::snprintf(
        text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(day.year()),
        static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()),
        static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
        static_cast<int>(time.seconds().count()), static_cast<int>(time.subseconds().count()));
    return {text.data(), static_cast<std::size_t>(length)};
}

std::optional<Date> parseDate(std::string_view text) {
    using namespace std::chrono;
    int y = 0;
    int mo = 0;
    int d = 0;
    int h = 0;
    int mi = 0;
    int s = 0;
    const bool complete = takeNumber(text, 4, y) && take(text, "-") && takeNumber(text, 2, mo) &&
                          take(text, "-") && takeNumber(text, 2, d) && take(text, "Tt ") &&
                          takeNumber(text, 2, h) && take(text, ":") && takeNumber(text, 2, mi) &&
                          take(text, ":") && takeNumber(text, 2, s);
    if (!complete)
        return std::nullopt;
    const auto fraction = takeFraction(text);
    const auto offset = takeOffset(text);
    const year_month_day day(year(y), month(static_cast<unsigned>(mo)),
                             std::chrono::day(static_cast<unsigned>(d)));
    if (!fraction || !offset || !text.empty() || !day.ok() || !isRepresentable(day.year()) || h > 23 ||
        mi > 59 || s > 60)
        return std::nullopt;
    return sys_days(day) + hours(h) + minutes(mi) + seconds(s) + *fraction - *offset;
}

namespace Detail {

namespace {

std::string_view kindName(const Value& json) {
    switch (json.kind()) {
    case boost::json::kind::null:
        return "null";
    case boost::json::kind::bool_:
        return "boolean";
    case boost::json::kind::string:
        return "string";
    case boost::json::kind::array:
        return "array";
    case boost::json::kind::object:
        return "object";
    default:
        return "number";
    }
}

} // namespace

void wrongKind(std::string_view expected, const Value& got) {
    throw JSONError("expected " + std::string(expected) + ", got " + std::string(kindName(got)));
}

std::int64_t signedInteger(const Value& json, std::int64_t lowest, std::int64_t highest) {
    const auto* number = json.if_int64();
    if (number == nullptr || *number < lowest || *number > highest)
        wrongKind("integer in range", json);
    return *number;
}

std::uint64_t unsignedInteger(const Value& json, std::uint64_t highest) {
    std::uint64_t number = 0;
    if (const auto* small = json.if_int64(); small != nullptr && *small >= 0)
        number = static_cast<std::uint64_t>(*small);
    else if (const auto* large = json.if_uint64())
        number = *large;
    else
        wrongKind("integer in range", json);
    if (number > highest)
        wrongKind("integer in range", json);
    return number;
}

const boost::json::array& array(const Value& json) {
    const auto* items = json.if_array();
    if (items == nullptr)
        wrongKind("array", json);
    return *items;
}

const boost::json::object& object(const Value& json) {
    const auto* members = json.if_object();
    if (members == nullptr)
        wrongKind("object", json);
    return *members;
}

std::string string(const Value& json) {
    const auto* text = json.if_string();
    if (text == nullptr)
        wrongKind("string", json);
    return {text->data(), text->size()};
}

double number(const Value& json) {
    if (const auto* real = json.if_double())
        return *real;
    if (const auto* integer = json.if_int64())
        return static_cast<double>(*integer);
    if (const auto* integer = json.if_uint64())
        return static_cast<double>(*integer);
    wrongKind("number", json);
}

bool boolean(const Value& json) {
    const auto* flag = json.if_bool();
    if (flag == nullptr)
        wrongKind("boolean", json);
    return *flag;
}

Date date(const Value& json) {
    const auto text = string(json);
    const auto parsed = parseDate(text);
    if (!parsed)
        throw JSONError("Invalid ISO-8601 date " + text);
    return *parsed;
}

std::string recordName(const char* mangled) {
    const auto name = boost::core::demangle(mangled);
    const auto scope = name.rfind("::");
    return scope == std::string::npos ? name : name.substr(scope + 2);
}

} // namespace Detail

} // namespace Korvane::KRJSON
