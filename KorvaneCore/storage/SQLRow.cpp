#include "KorvaneCore/storage/SQLRow.hpp"

#include <charconv>

namespace Korvane {

namespace {

struct Owned {
    SQLValue operator()(std::monostate /*null*/) const { return {}; }

    SQLValue operator()(std::int64_t number) const { return number; }

    SQLValue operator()(double number) const { return number; }

    SQLValue operator()(std::string_view text) const { return std::string(text); }

    SQLValue operator()(std::span<const std::uint8_t> blob) const {
        return std::vector<std::uint8_t>(blob.begin(), blob.end());
    }
};

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
        columns.insert_or_assign(std::string(names[i]), std::visit(Owned(), cells_[i]));
    return columns;
}

SQLValue SQLRow::operator[](std::string_view column) const {
    return std::visit(Owned(), cell(column));
}

std::optional<std::string> SQLRow::string(std::string_view column) const {
    const auto found = cell(column);
    const auto* text = std::get_if<std::string_view>(&found);
    return text == nullptr ? std::nullopt : std::optional<std::string>(*text);
}

std::optional<std::int64_t> SQLRow::intValue(std::string_view column) const {
    const auto found = cell(column);
    if (const auto* number = std::get_if<std::int64_t>(&found))
        return *number;
    const auto* text = std::get_if<std::string_view>(&found);
    return text == nullptr ? std::nullopt : decimal(*text);
}

std::optional<double> SQLRow::doubleValue(std::string_view column) const {
    const auto found = cell(column);
    if (const auto* number = std::get_if<double>(&found))
        return *number;
    const auto* integer = std::get_if<std::int64_t>(&found);
    return integer == nullptr ? std::nullopt : std::optional(static_cast<double>(*integer));
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
    const auto* blob = std::get_if<std::span<const std::uint8_t>>(&found);
    if (blob == nullptr)
        return std::nullopt;
    return std::vector<std::uint8_t>(blob->begin(), blob->end());
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
