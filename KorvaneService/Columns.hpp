#pragma once

#include "KorvaneCore/storage/SQLRow.hpp"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Columns that are never NULL. A value that is missing, or of another type, is a mistake of the service and
/// ends the request: std::logic_error.
namespace Korvane::Columns {

template <class T>
[[nodiscard]] T required(std::optional<T> value, std::string_view column) {
    if (!value)
        throw std::logic_error("the column " + std::string(column) + " has no value");
    return std::move(*value);
}

[[nodiscard]] inline std::string text(const SQLRow& row, std::string_view column) {
    return required(row.string(column), column);
}

[[nodiscard]] inline std::int64_t integer(const SQLRow& row, std::string_view column) {
    return required(row.intValue(column), column);
}

[[nodiscard]] inline std::chrono::system_clock::time_point date(const SQLRow& row, std::string_view column) {
    return required(row.date(column), column);
}

[[nodiscard]] inline std::vector<std::uint8_t> bytes(const SQLRow& row, std::string_view column) {
    return required(row.data(column), column);
}

} // namespace Korvane::Columns
