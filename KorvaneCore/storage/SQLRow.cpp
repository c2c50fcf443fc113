#include "KorvaneCore/storage/SQLRow.hpp"

#include <charconv>

namespace Korvane {

namespace {

using Cell = SQLResult::Cell;
using Kind = Cell::Kind;
using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(const Cell& cell) {
    return {cell.bytes, cell.bytes + cell.size};
}

SQLValue valueOf(const Cell& cell) {
    switch (cell.kind) {
    case Kind::integer:
        return cell.integer;
    case Kind::real:
        return cell.real;
    case Kind::text:
        return std::string(cell.text());
    case Kind::blob:
        return bytesOf(cell);
    case Kind::null:
        break;
    }
    return {};
}

std::optional<std::int64_t> decimal(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-'))
            return std::nullopt;
    }
    std::int64_t number = 0;
    const char* const begin = text.data();
    const char* const end = begin + text.size();
    const auto [stop, error] = std::from_chars(begin, end, number);
    if (error != std::errc() || stop != end)
        return std::nullopt;
    return number;
}

} // namespace

std::map<std::string, SQLValue> SQLRow::columns() const {
    std::map<std::string, SQLValue> columns;
    const auto names = result_->columns();
    for (std::size_t i = 0; i < names.size(); ++i)
        columns.insert_or_assign(std::string(names[i]), valueOf(cells_[i]));
    return columns;
}

SQLValue SQLRow::operator[](std::string_view column) const {
    return valueOf(cell(column));
}

std::optional<std::string> SQLRow::string(std::string_view column) const {
    const auto found = cell(column);
    return found.kind == Kind::text ? std::optional<std::string>(found.text()) : std::nullopt;
}

std::optional<std::int64_t> SQLRow::intValue(std::string_view column) const {
    const auto found = cell(column);
    if (found.kind == Kind::integer)
        return found.integer;
    return found.kind == Kind::text ? decimal(found.text()) : std::nullopt;
}

std::optional<double> SQLRow::doubleValue(std::string_view column) const {
    const auto found = cell(column);
    if (found.kind == Kind::real)
        return found.real;
    return found.kind == Kind::integer ? std::optional(static_cast<double>(found.integer)) : std::nullopt;
}

bool SQLRow::boolValue(std::string_view column) const {
    return intValue(column).value_or(0) != 0;
}

std::optional<std::chrono::system_clock::time_point> SQLRow::date(std::string_view column) const {
    const auto seconds = doubleValue(column);
    return seconds ? std::optional(dateSince1970(*seconds)) : std::nullopt;
}

std::optional<std::vector<std::uint8_t>> SQLRow::data(std::string_view column) const {
    const auto found = cell(column);
    return found.kind == Kind::blob ? std::optional(bytesOf(found)) : std::nullopt;
}

SQLResult::Cell SQLRow::cell(std::string_view column) const {
    // From the end, so that of two columns with one name the later is found. A few dozen names of mostly
    // different length are searched faster than hashed.
    const auto names = result_->columns();
    for (std::size_t i = names.size(); i-- > 0;) {
        if (names[i] == column)
            return cells_[i];
    }
    return {};
}

} // namespace Korvane
