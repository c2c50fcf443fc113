#pragma once

#include "KorvaneCore/storage/SQLResult.hpp"
#include "KorvaneCore/storage/SQLValue.hpp"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Korvane {

/// One result row. Of two columns with the same name the later one counts. Cheap to copy: rows share the
/// memory of their query's result, which lives as long as any of them, so what outlasts the query is copied
/// out. Callable from any thread.
class SQLRow {
public:
    /// `cells` lie in `result`, one for each of its columns.
    SQLRow(std::shared_ptr<const SQLResult> result, const SQLResult::Cell* cells)
        : result_(std::move(result)), cells_(cells) {}

    [[nodiscard]] std::map<std::string, SQLValue> columns() const;

    /// Null for a column the row does not have. The accessors below give none for it.
    [[nodiscard]] SQLValue operator[](std::string_view column) const;

    /// A text.
    [[nodiscard]] std::optional<std::string> string(std::string_view column) const;

    /// An int, or a text that is one in decimal: an optional sign, then digits alone, within 64 bits.
    [[nodiscard]] std::optional<std::int64_t> intValue(std::string_view column) const;

    /// A double or an int; never a text.
    [[nodiscard]] std::optional<double> doubleValue(std::string_view column) const;

    /// Whether intValue() is there and not 0.
    [[nodiscard]] bool boolValue(std::string_view column) const;

    /// A double or an int, as seconds since 1970 (see dateSince1970).
    [[nodiscard]] std::optional<std::chrono::system_clock::time_point> date(std::string_view column) const;

    /// A blob; an empty one is an empty buffer.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> data(std::string_view column) const;

private:
    [[nodiscard]] SQLResult::Cell cell(std::string_view column) const;

    std::shared_ptr<const SQLResult> result_;
    const SQLResult::Cell* cells_;
};

} // namespace Korvane
