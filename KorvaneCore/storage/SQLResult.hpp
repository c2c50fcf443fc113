#pragma once

#include <cstdint>
#include <memory_resource>
#include <span>
#include <string_view>

struct sqlite3_stmt;
struct sqlite3_value;

namespace Korvane {

/// The memory behind the rows of one query: the column names once, then cells, texts and blobs, row after
/// row, in few large pieces. Filled by SQLiteDatabase, read through SQLRow; not changed once rows are handed
/// out.
class SQLResult {
public:
    /// An SQLValue in 16 bytes; a text or blob lies elsewhere in this result.
    struct Cell {
        enum class Kind : std::uint8_t { null, integer, real, text, blob };

        Kind kind = Kind::null;
        std::uint32_t size = 0; ///< of text and blob, in bytes

        union {
            std::int64_t integer = 0;
            double real;
            const char* bytes;
        };

        [[nodiscard]] std::string_view text() const noexcept { return {bytes, size}; }
    };

    /// Copies the column names of a statement that stands on its first row.
    explicit SQLResult(sqlite3_stmt* statement);

    /// Copies the row the statement stands on; one cell for each column. The caller holds the connection's
    /// mutex, which makes SQLite's values safe to read without a lock for each.
    [[nodiscard]] const Cell* append(sqlite3_stmt* statement);

    [[nodiscard]] std::span<const std::string_view> columns() const noexcept { return columns_; }

private:
    [[nodiscard]] Cell copy(sqlite3_value* value);
    [[nodiscard]] Cell copy(Cell::Kind kind, const void* bytes, int size);

    std::pmr::monotonic_buffer_resource memory_;
    std::span<const std::string_view> columns_;
};

} // namespace Korvane
