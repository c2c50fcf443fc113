#include "KorvaneCore/storage/SQLResult.hpp"

#include <sqlite3.h>

#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

namespace Korvane {

namespace {

/// One row of the widest table; a result of many rows grows its pieces from here.
constexpr std::size_t firstPiece = 2048;

template <typename T>
T* allocate(std::pmr::memory_resource& memory, std::size_t count) {
    static_assert(std::is_trivially_destructible_v<T>, "this memory is given back without destructors");
    return static_cast<T*>(memory.allocate(count * sizeof(T), alignof(T)));
}

} // namespace

SQLResult::SQLResult(sqlite3_stmt* statement) : memory_(firstPiece) {
    const int count = sqlite3_column_count(statement);
    auto* names = allocate<std::string_view>(memory_, static_cast<std::size_t>(count));
    for (int column = 0; column < count; ++column) {
        const char* name = sqlite3_column_name(statement, column);
        if (name == nullptr)
            throw std::bad_alloc();
        const auto held = copy(Cell::Kind::text, name, static_cast<int>(std::strlen(name)));
        std::construct_at(names + column, held.text());
    }
    columns_ = {names, static_cast<std::size_t>(count)};
}

const SQLResult::Cell* SQLResult::append(sqlite3_stmt* statement) {
    auto* cells = allocate<Cell>(memory_, columns_.size());
    for (std::size_t column = 0; column < columns_.size(); ++column)
        std::construct_at(cells + column, copy(sqlite3_column_value(statement, static_cast<int>(column))));
    return cells;
}

SQLResult::Cell SQLResult::copy(sqlite3_value* value) {
    switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER:
        return {.kind = Cell::Kind::integer, .integer = sqlite3_value_int64(value)};
    case SQLITE_FLOAT:
        return {.kind = Cell::Kind::real, .real = sqlite3_value_double(value)};
    case SQLITE_TEXT: {
        // The pointer is asked for first: the size that follows is that of the form it shows.
        const auto* text = sqlite3_value_text(value);
        if (text == nullptr)
            throw std::bad_alloc();
        return copy(Cell::Kind::text, text, sqlite3_value_bytes(value));
    }
    case SQLITE_BLOB: {
        const void* blob = sqlite3_value_blob(value);
        return copy(Cell::Kind::blob, blob, sqlite3_value_bytes(value));
    }
    default:
        return {};
    }
}

SQLResult::Cell SQLResult::copy(Cell::Kind kind, const void* bytes, int size) {
    if (size == 0)
        return {.kind = kind, .bytes = ""};
    auto* held = allocate<char>(memory_, static_cast<std::size_t>(size));
    std::memcpy(held, bytes, static_cast<std::size_t>(size));
    return {.kind = kind, .size = static_cast<std::uint32_t>(size), .bytes = held};
}

} // namespace Korvane
