#include "KorvaneCore/storage/SQLResult.hpp"

#include <sqlite3.h>

#include <algorithm>
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
        std::construct_at(names + column, copy(std::string_view(name)));
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
    // The pointer is asked for first: the size that follows is that of the form the pointer shows.
    const auto sizeOf = [value] { return static_cast<std::size_t>(sqlite3_value_bytes(value)); };
    switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER:
        return sqlite3_value_int64(value);
    case SQLITE_FLOAT:
        return sqlite3_value_double(value);
    case SQLITE_TEXT: {
        const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
        if (text == nullptr)
            throw std::bad_alloc();
        return copy({text, sizeOf()});
    }
    case SQLITE_BLOB: {
        const auto* blob = static_cast<const char*>(sqlite3_value_blob(value));
        const auto bytes = copy({blob, sizeOf()});
        return std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    default:
        return {};
    }
}

std::string_view SQLResult::copy(std::string_view bytes) {
    if (bytes.empty())
        return {};
    auto* held = allocate<char>(memory_, bytes.size());
    std::memcpy(held, bytes.data(), bytes.size());
    return {held, bytes.size()};
}

} // namespace Korvane
