#pragma once

#include <chrono>
#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace Korvane {

/// One value as SQLite keeps it: null, int, double, text (UTF-8) or blob. Compared by case and payload, so
/// the int 1 is not the double 1.0.
using SQLValue = std::variant<std::monostate, std::int64_t, double, std::string, std::vector<std::uint8_t>>;

/// Dates lie in databases as seconds since 1970-01-01 00:00:00 UTC.
[[nodiscard]] double secondsSince1970(std::chrono::system_clock::time_point date);

/// The date of so many seconds, to the microsecond: one of whole microseconds comes back as it was stored.
/// What lies beyond system_clock (years 1677 to 2262) becomes the nearest second it holds.
[[nodiscard]] std::chrono::system_clock::time_point dateSince1970(double seconds);

/// Integers that always fit a signed 64-bit one, bool (1 or 0) included. Characters are no numbers, and what
/// an unsigned 64-bit number means in a signed column is for its owner to say.
template <typename T>
concept SQLInteger = std::integral<T> && std::numeric_limits<T>::digits <= 63 && !std::same_as<T, char> &&
                     !std::same_as<T, wchar_t> && !std::same_as<T, char8_t> && !std::same_as<T, char16_t> &&
                     !std::same_as<T, char32_t>;

template <SQLInteger T>
[[nodiscard]] SQLValue sqlValue(T value) {
    return static_cast<std::int64_t>(value);
}

template <std::floating_point T>
    requires(sizeof(T) <= sizeof(double))
[[nodiscard]] SQLValue sqlValue(T value) {
    return static_cast<double>(value);
}

template <typename T>
    requires std::convertible_to<const T&, std::string_view>
[[nodiscard]] SQLValue sqlValue(const T& text) {
    return std::string(std::string_view(text));
}

template <typename T>
    requires std::convertible_to<const T&, std::span<const std::uint8_t>>
[[nodiscard]] SQLValue sqlValue(const T& blob) {
    const std::span<const std::uint8_t> bytes(blob);
    return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
}

[[nodiscard]] inline SQLValue sqlValue(std::chrono::system_clock::time_point date) {
    return secondsSince1970(date);
}

template <std::same_as<SQLValue> T>
[[nodiscard]] SQLValue sqlValue(const T& value) {
    return value;
}

[[nodiscard]] inline SQLValue sqlValue(std::nullopt_t /*absent*/) {
    return {};
}

template <typename T>
[[nodiscard]] auto sqlValue(const std::optional<T>& value) -> decltype(sqlValue(*value)) {
    return value ? sqlValue(*value) : SQLValue();
}

/// What can be a statement's argument: whatever has a sqlValue() giving its SQLValue. Beyond those above, a
/// type takes part by a function of that name in its own namespace.
template <typename T>
concept SQLBindable = requires(const T& value) {
    { sqlValue(value) } -> std::same_as<SQLValue>;
};

} // namespace Korvane
