// The SQLite layer beside the bare C API: the same statements on the same file in the same run, 22 columns a
// row.

#include "KorvaneCore/storage/SQLiteDatabase.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <memory>

namespace {

using namespace Korvane;
using Bytes = std::vector<std::uint8_t>;
using Text = std::optional<std::string>;
using Time = std::optional<double>;

struct Item {
    std::string id;
    bool isFolder = false;
    Text parentId;
    std::string name;
    std::string nameLower;
    Text mime;
    std::int64_t size = 0;
    Text sha256;
    Time mtime;
    Text blobId;
    std::int64_t encryptedSize = 0;
    std::int64_t chunkCount = 0;
    std::optional<Bytes> wrappedFileKey;
    std::int64_t version = 0;
    bool hasThumbnail = false;
    Bytes metaEnc;
    Text nameBlindIndex;
    Time createdAt;
    Time updatedAt;
    Time deletedAt;
    Text createdByDevice;
    std::int64_t seq = 0;
};

constexpr auto schema =
    "CREATE TABLE items (id TEXT PRIMARY KEY, is_folder INTEGER NOT NULL, parent_id TEXT, name TEXT NOT "
    "NULL, "
    "name_lower TEXT NOT NULL, mime TEXT, size INTEGER NOT NULL, sha256 TEXT, mtime REAL, blob_id TEXT, "
    "encrypted_size INTEGER NOT NULL, chunk_count INTEGER NOT NULL, wrapped_file_key BLOB, version INTEGER "
    "NOT NULL, "
    "has_thumbnail INTEGER NOT NULL, meta_enc BLOB NOT NULL, name_blind_index TEXT, created_at REAL, "
    "updated_at REAL, "
    "deleted_at REAL, created_by_device TEXT, seq INTEGER NOT NULL);"
    "CREATE INDEX items_parent ON items(parent_id, deleted_at);"
    "CREATE INDEX items_name ON items(name_lower);";

const std::string insertion = "INSERT INTO items VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
const std::string selection = "SELECT * FROM items";

Item item(int number) {
    const auto suffix = std::to_string(100'000 + number);
    Item made;
    made.id = "5f0e9c3a-7d41-4b8e-9a55-c21d3e" + suffix;
    made.parentId = "0b7a61d2-93fe-4c0d-8f4e-7d2b9a" + std::to_string(100'000 + number / 50);
    made.name = "Holiday picture " + suffix + ".jpeg";
    made.nameLower = "holiday picture " + suffix + ".jpeg";
    made.mime = "image/jpeg";
    made.size = 3'000'000 + number;
    made.sha256 = std::string(58, 'a') + suffix;
    made.mtime = 1.7e9 + number;
    made.blobId = "b_" + std::string(36, 'b') + suffix;
    made.encryptedSize = made.size + 16;
    made.chunkCount = 1;
    made.wrappedFileKey = Bytes(61, 7);
    made.version = 1;
    made.hasThumbnail = true;
    made.metaEnc = Bytes(260, 9);
    made.nameBlindIndex = std::string(58, 'c') + suffix;
    made.createdAt = 1.7e9;
    made.updatedAt = 1.7e9;
    made.createdByDevice = "e7d1c0aa-1f5b-4f0e-8a39-90b1c2d3e4f5";
    made.seq = number;
    return made;
}

void insertThroughLayer(SQLiteDatabase& database, const Item& i) {
    database.run(insertion, i.id, i.isFolder, i.parentId, i.name, i.nameLower, i.mime, i.size, i.sha256,
                 i.mtime, i.blobId, i.encryptedSize, i.chunkCount, i.wrappedFileKey, i.version,
                 i.hasThumbnail, i.metaEnc, i.nameBlindIndex, i.createdAt, i.updatedAt, i.deletedAt,
                 i.createdByDevice, i.seq);
}

/// What the layer's users do with a row: every column by its name.
Item itemOf(const SQLRow& row) {
    return {row.string("id").value_or(""),
            row.boolValue("is_folder"),
            row.string("parent_id"),
            row.string("name").value_or(""),
            row.string("name_lower").value_or(""),
            row.string("mime"),
            row.intValue("size").value_or(0),
            row.string("sha256"),
            row.doubleValue("mtime"),
            row.string("blob_id"),
            row.intValue("encrypted_size").value_or(0),
            row.intValue("chunk_count").value_or(0),
            row.data("wrapped_file_key"),
            row.intValue("version").value_or(0),
            row.boolValue("has_thumbnail"),
            row.data("meta_enc").value_or(Bytes()),
            row.string("name_blind_index"),
            row.doubleValue("created_at"),
            row.doubleValue("updated_at"),
            row.doubleValue("deleted_at"),
            row.string("created_by_device"),
            row.intValue("seq").value_or(0)};
}

void check(int code, int expected) {
    if (code != expected)
        throw std::runtime_error(sqlite3_errstr(code));
}

/// Binds one argument after the other through the C API.
struct Binder {
    sqlite3_stmt* statement;
    int position = 1;

    void operator()(std::int64_t value) {
        check(sqlite3_bind_int64(statement, position++, value), SQLITE_OK);
    }

    void operator()(double value) { check(sqlite3_bind_double(statement, position++, value), SQLITE_OK); }

    void operator()(const std::string& value) {
        const auto size = static_cast<int>(value.size());
        check(sqlite3_bind_text(statement, position++, value.data(), size, SQLITE_TRANSIENT), SQLITE_OK);
    }

    void operator()(const Bytes& value) {
        const auto size = static_cast<int>(value.size());
        check(sqlite3_bind_blob(statement, position++, value.data(), size, SQLITE_TRANSIENT), SQLITE_OK);
    }

    template <typename T>
    void operator()(const std::optional<T>& value) {
        if (value)
            (*this)(*value);
        else
            check(sqlite3_bind_null(statement, position++), SQLITE_OK);
    }
};

void insertBare(sqlite3_stmt* statement, const Item& i) {
    Binder bind{statement};
    bind(i.id), bind(std::int64_t{i.isFolder}), bind(i.parentId), bind(i.name), bind(i.nameLower),
        bind(i.mime);
    bind(i.size), bind(i.sha256), bind(i.mtime), bind(i.blobId), bind(i.encryptedSize), bind(i.chunkCount);
    bind(i.wrappedFileKey), bind(i.version), bind(std::int64_t{i.hasThumbnail}), bind(i.metaEnc);
    bind(i.nameBlindIndex), bind(i.createdAt), bind(i.updatedAt), bind(i.deletedAt), bind(i.createdByDevice);
    bind(i.seq);
    check(sqlite3_step(statement), SQLITE_DONE);
}

/// Reads one column after the other through the C API.
struct Reader {
    sqlite3_stmt* statement;
    int column = 0;

    std::int64_t integer() { return sqlite3_column_int64(statement, column++); }

    std::string text() {
        const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
        return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement, column++))};
    }

    Bytes blob() {
        const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement, column));
        return {bytes, bytes + sqlite3_column_bytes(statement, column++)};
    }

    bool null() {
        const bool isNull = sqlite3_column_type(statement, column) == SQLITE_NULL;
        column += isNull ? 1 : 0;
        return isNull;
    }

    Text optionalText() { return null() ? std::nullopt : Text(text()); }

    Time optionalTime() { return null() ? std::nullopt : Time(sqlite3_column_double(statement, column++)); }

    std::optional<Bytes> optionalBlob() { return null() ? std::nullopt : std::optional(blob()); }
};

Item itemOf(sqlite3_stmt* statement) {
    Reader r{statement};
    return {r.text(),         r.integer() != 0, r.optionalText(), r.text(),         r.text(),
            r.optionalText(), r.integer(),      r.optionalText(), r.optionalTime(), r.optionalText(),
            r.integer(),      r.integer(),      r.optionalBlob(), r.integer(),      r.integer() != 0,
            r.blob(),         r.optionalText(), r.optionalTime(), r.optionalTime(), r.optionalTime(),
            r.optionalText(), r.integer()};
}

/// Looks at every value where SQLite shows it, and keeps nothing: the least any reader can do.
std::size_t lookAt(sqlite3_stmt* statement) {
    std::size_t sum = 0;
    const int columns = sqlite3_column_count(statement);
    for (int column = 0; column < columns; ++column) {
        switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            sum += static_cast<std::size_t>(sqlite3_column_int64(statement, column));
            break;
        case SQLITE_FLOAT:
            sum += static_cast<std::size_t>(sqlite3_column_double(statement, column));
            break;
        case SQLITE_TEXT:
            benchmark::DoNotOptimize(sqlite3_column_text(statement, column));
            sum += static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
            break;
        case SQLITE_BLOB:
            benchmark::DoNotOptimize(sqlite3_column_blob(statement, column));
            sum += static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
            break;
        default:
            break;
        }
    }
    return sum;
}

class Statement {
public:
    Statement(SQLiteDatabase& database, const std::string& sql) {
        check(sqlite3_prepare_v2(database.handle(), sql.c_str(), -1, &statement_, nullptr), SQLITE_OK);
    }

    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    ~Statement() { sqlite3_finalize(statement_); }

    [[nodiscard]] sqlite3_stmt* get() const { return statement_; }

private:
    sqlite3_stmt* statement_ = nullptr;
};

constexpr int inserted = 10'000;
constexpr int stored = 100'000;

const std::vector<Item>& items() {
    static const auto made = [] {
        std::vector<Item> list;
        list.reserve(stored);
        for (int number = 0; number < stored; ++number)
            list.push_back(item(number));
        return list;
    }();
    return made;
}

/// Times `insertAll` inside one transaction, on an emptied table each time.
template <typename InsertAll>
void insertRows(benchmark::State& state, const InsertAll& insertAll) {
    const Testing::TemporaryFolder folder;
    SQLiteDatabase database(folder / "items.sqlite");
    database.execute(schema);
    const std::span rows(items().data(), inserted);
    for (auto _ : state) { // NOLINT(readability-identifier-naming)
        database.transaction([&](SQLiteDatabase& open) { insertAll(open, rows); });
        state.PauseTiming();
        database.execute("DELETE FROM items; PRAGMA wal_checkpoint(TRUNCATE)");
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * inserted);
}

void insertLayer(benchmark::State& state) {
    insertRows(state, [](SQLiteDatabase& database, std::span<const Item> rows) {
        for (const auto& row : rows)
            insertThroughLayer(database, row);
    });
}

void insertBareC(benchmark::State& state) {
    insertRows(state, [](SQLiteDatabase& database, std::span<const Item> rows) {
        for (const auto& row : rows)
            insertBare(Statement(database, insertion).get(), row);
    });
}

/// For comparison: what the rule of one preparation a call costs.
void insertBareCPreparedOnce(benchmark::State& state) {
    insertRows(state, [](SQLiteDatabase& database, std::span<const Item> rows) {
        const Statement statement(database, insertion);
        for (const auto& row : rows) {
            insertBare(statement.get(), row);
            check(sqlite3_reset(statement.get()), SQLITE_OK);
        }
    });
}

/// Times `readAll` on a table of 100,000 rows; it returns how many it has read.
template <typename ReadAll>
void readRows(benchmark::State& state, const ReadAll& readAll) {
    static const Testing::TemporaryFolder folder;
    static SQLiteDatabase database = [] {
        SQLiteDatabase filled(folder / "items.sqlite");
        filled.execute(schema);
        filled.transaction([](SQLiteDatabase& open) {
            for (const auto& row : items())
                insertThroughLayer(open, row);
        });
        return filled;
    }();
    for (auto _ : state) { // NOLINT(readability-identifier-naming)
        if (readAll(database) != stored)
            state.SkipWithError("rows are missing");
    }
    state.SetItemsProcessed(state.iterations() * stored);
}

void readLayer(benchmark::State& state) {
    readRows(state, [](SQLiteDatabase& database) { return database.query(selection).size(); });
}

void readBareC(benchmark::State& state) {
    readRows(state, [](SQLiteDatabase& database) {
        const Statement statement(database, selection);
        std::size_t rows = 0;
        for (; sqlite3_step(statement.get()) == SQLITE_ROW; ++rows)
            benchmark::DoNotOptimize(lookAt(statement.get()));
        return rows;
    });
}

void readRecordsLayer(benchmark::State& state) {
    readRows(state, [](SQLiteDatabase& database) {
        const auto rows = database.query(selection);
        std::vector<Item> records;
        records.reserve(rows.size());
        for (const auto& row : rows)
            records.push_back(itemOf(row));
        return records.size();
    });
}

void readRecordsBareC(benchmark::State& state) {
    readRows(state, [](SQLiteDatabase& database) {
        const Statement statement(database, selection);
        std::vector<Item> records;
        while (sqlite3_step(statement.get()) == SQLITE_ROW)
            records.push_back(itemOf(statement.get()));
        return records.size();
    });
}

BENCHMARK(insertLayer)->Unit(benchmark::kMillisecond);
BENCHMARK(insertBareC)->Unit(benchmark::kMillisecond);
BENCHMARK(insertBareCPreparedOnce)->Unit(benchmark::kMillisecond);
BENCHMARK(readLayer)->Unit(benchmark::kMillisecond);
BENCHMARK(readBareC)->Unit(benchmark::kMillisecond);
BENCHMARK(readRecordsLayer)->Unit(benchmark::kMillisecond);
BENCHMARK(readRecordsBareC)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
