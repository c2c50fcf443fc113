// The local index at 1,000, 100,000 and 1,000,000 items, each query through LocalIndex and through the bare C
// API with the same statement, without and with the indexes of version 3. Names read
// operation/items/version/how.

#include "KRCrypto/UnicodeText.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "bench/storage/IndexTree.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>

namespace {

using namespace Korvane;
namespace IndexTree = Bench::IndexTree;

constexpr auto dropVersion3 =
    "DROP INDEX items_child; DROP INDEX items_listed; DROP INDEX items_recent; DROP INDEX items_seq; "
    "DROP INDEX items_blob; DROP INDEX items_received; DROP INDEX transfers_key; DROP INDEX "
    "transfers_waiting; DROP INDEX items_pictures;";

/// A filled file of each size and version, made when first asked for.
class Files {
public:
    /// Of version 2 the file says 3, so that opening it adds nothing.
    std::filesystem::path items(std::int64_t count, int version) {
        return path("items", count, version, [&](LocalIndex& index) {
            std::vector<IndexItem> page;
            for (std::int64_t number = 0; number < count; ++number) {
                page.push_back(IndexTree::item(number));
                if (page.size() == 10'000 || number + 1 == count) {
                    index.upsert(page);
                    page.clear();
                }
            }
        });
    }

    std::filesystem::path transfers(std::int64_t count, int version) {
        return path("transfers", count, version, [&](LocalIndex& index) {
            SQLiteDatabase(index.url()).transaction([&](SQLiteDatabase& database) {
                for (std::int64_t number = 0; number < count; ++number) {
                    const auto made = IndexTree::transfer(number);
                    database.run(
                        "INSERT INTO transfers(id,kind,state,payload,next_attempt,total,created_at,title,"
                        "dedupe_key) VALUES(?,0,0,?,?,?,?,?,?)",
                        made.id, made.payload, made.nextAttempt, made.total, made.createdAt, made.title,
                        fmt::format("sync:root:{}", number));
                }
            });
        });
    }

private:
    std::filesystem::path path(const char* kind, std::int64_t count, int version,
                               const std::function<void(LocalIndex&)>& fill) {
        const auto name = [&](int of) { return folder_ / fmt::format("{}-{}-v{}.sqlite", kind, count, of); };
        if (!std::filesystem::exists(name(2))) {
            {
                LocalIndex index(name(2));
                SQLiteDatabase(name(2)).execute(dropVersion3);
                fill(index);
            }
            std::filesystem::copy_file(name(2), name(3));
            SQLiteDatabase(name(3)).setUserVersion(2);
            const auto start = std::chrono::steady_clock::now();
            {
                const LocalIndex migrated(name(3));
            }
            const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
            fmt::print("{} {}: {:.1f} MB, with version 3 {:.1f} MB, migrated in {:.0f} ms\n", kind, count,
                       megabytes(name(2)), megabytes(name(3)), taken.count());
        }
        return name(version);
    }

    static double megabytes(const std::filesystem::path& file) {
        return static_cast<double>(std::filesystem::file_size(file)) / 1e6;
    }

    Testing::TemporaryFolder folder_;
};

Files& files() {
    static Files made;
    return made;
}

void check(int code, int expected) {
    if (code != expected)
        throw std::runtime_error(sqlite3_errstr(code));
}

/// A statement prepared, bound and finalised through the C API.
class Statement {
public:
    Statement(sqlite3* database, const std::string& sql, const std::vector<SQLValue>& args) {
        check(sqlite3_prepare_v2(database, sql.c_str(), -1, &statement_, nullptr), SQLITE_OK);
        for (std::size_t i = 0; i < args.size(); ++i)
            check(std::visit(Binder{statement_, static_cast<int>(i + 1)}, args[i]), SQLITE_OK);
    }

    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    ~Statement() { sqlite3_finalize(statement_); }

    /// Looks at every value of every row and keeps nothing: the least any reader can do. Gives the number of
    /// rows.
    std::size_t run() {
        std::size_t rows = 0;
        for (; sqlite3_step(statement_) == SQLITE_ROW; ++rows) {
            const int columns = sqlite3_column_count(statement_);
            for (int column = 0; column < columns; ++column)
                look(column);
        }
        return rows;
    }

private:
    struct Binder {
        sqlite3_stmt* statement;
        int position;

        int operator()(std::monostate /*null*/) const { return sqlite3_bind_null(statement, position); }

        int operator()(std::int64_t value) const { return sqlite3_bind_int64(statement, position, value); }

        int operator()(double value) const { return sqlite3_bind_double(statement, position, value); }

        int operator()(const std::string& value) const {
            return sqlite3_bind_text(statement, position, value.data(), static_cast<int>(value.size()),
                                     SQLITE_STATIC);
        }

        int operator()(const std::vector<std::uint8_t>& value) const {
            return sqlite3_bind_blob(statement, position, value.data(), static_cast<int>(value.size()),
                                     SQLITE_STATIC);
        }
    };

    void look(int column) {
        switch (sqlite3_column_type(statement_, column)) {
        case SQLITE_INTEGER:
            benchmark::DoNotOptimize(sqlite3_column_int64(statement_, column));
            break;
        case SQLITE_FLOAT:
            benchmark::DoNotOptimize(sqlite3_column_double(statement_, column));
            break;
        case SQLITE_TEXT:
            benchmark::DoNotOptimize(sqlite3_column_text(statement_, column));
            break;
        case SQLITE_BLOB:
            benchmark::DoNotOptimize(sqlite3_column_blob(statement_, column));
            break;
        default:
            break;
        }
    }

    sqlite3_stmt* statement_ = nullptr;
};

struct Query {
    std::string name;
    std::string sql;
    std::vector<SQLValue> args;
    std::function<std::size_t(LocalIndex&)> layer; ///< gives the number of rows
};

std::vector<Query> itemQueries(std::int64_t count) {
    const auto camera = IndexTree::id(IndexTree::cameraFolder);
    const bool large = count > IndexTree::archiveFolder;
    const auto big = IndexTree::id(large ? IndexTree::archiveFolder : IndexTree::cameraFolder);
    // The last folder: names like its own are given to many.
    const auto known = IndexTree::item(large ? count - 20 + IndexTree::archiveFolder % 20 : 7);
    const auto parent = known.parentId.value_or("");
    const auto nameLower = KRCrypto::toLower(known.name);
    const auto blob = IndexTree::item(count - 1).blobId.value_or("");
    const std::string all = "SELECT * FROM items WHERE ";
    const std::string live = "deleted_at IS NULL ";
    const auto searching =
        all + live +
        "AND parent_id IS NOT NULL AND name_lower LIKE ? ESCAPE '\\' ORDER BY is_folder DESC, "
        "name_lower LIMIT ?";
    const auto search = [](const std::string& text) {
        return [text](LocalIndex& index) { return index.search(text, 50).size(); };
    };
    return {
        {"children_1000",
         all + "parent_id=? AND " + live + "ORDER BY is_folder DESC, name_lower",
         {camera},
         [=](LocalIndex& index) { return index.children(camera).size(); }},
        {"child",
         all + "parent_id=? AND name_lower=? AND " + live + "LIMIT 1",
         {parent, nameLower},
         [=](LocalIndex& index) { return index.child(parent, known.name) ? 1U : 0U; }},
        {"search_rare",
         searching,
         {std::string("%") + IndexTree::rareText + "%", std::int64_t{50}},
         search(IndexTree::rareText)},
        {"search_common", searching, {std::string("%g_2%"), std::int64_t{50}}, search("g_2")},
        {"descendants",
         "WITH RECURSIVE t(id, path) AS (SELECT id, name FROM items WHERE parent_id=?1 AND deleted_at IS "
         "NULL AND id<>?1 UNION "
         "ALL SELECT i.id, t.path || '/' || i.name FROM items i JOIN t ON i.parent_id = t.id WHERE "
         "i.deleted_at IS NULL AND "
         "i.id<>?1) SELECT items.*, t.path AS rel_path FROM t JOIN items ON items.id = t.id",
         {big},
         [=](LocalIndex& index) { return index.descendants(big).size(); }},
        {"recentFiles_50",
         all + live + "AND is_folder=0 ORDER BY updated_at DESC LIMIT ?",
         {std::int64_t{50}},
         [](LocalIndex& index) { return index.recentFiles(50).size(); }},
        {"receivedFiles",
         all + "is_folder=0 AND deleted_at IS NULL AND blob_id LIKE ?",
         {std::string("drop_%")},
         [](LocalIndex& index) { return index.receivedFiles().size(); }},
        {"changedAfter_100",
         all + "seq > ? ORDER BY seq LIMIT ?",
         {count - 100, std::int64_t{500}},
         [=](LocalIndex& index) { return index.items(count - 100, 500).size(); }},
        {"maxItemSeq",
         "SELECT MAX(seq) AS s FROM items",
         {},
         [](LocalIndex& index) { return index.maxItemSeq() > 0 ? 1U : 0U; }},
        {"wrappedKey",
         "SELECT wrapped_file_key FROM items WHERE blob_id=? AND wrapped_file_key IS NOT NULL LIMIT 1",
         {blob},
         [=](LocalIndex& index) { return index.wrappedKey(blob) ? 1U : 0U; }},
        {"counts",
         "SELECT SUM(is_folder=0) AS f, SUM(is_folder=1) AS d, SUM(CASE WHEN is_folder=0 THEN size ELSE 0 "
         "END) AS b FROM items "
         "WHERE deleted_at IS NULL",
         {},
         [](LocalIndex& index) { return index.counts().files > 0 ? 1U : 0U; }},
        {"liveFileItems",
         "WITH RECURSIVE tree(id) AS (SELECT id FROM items WHERE parent_id IS NULL AND is_folder=1 AND "
         "deleted_at IS NULL UNION "
         "ALL SELECT i.id FROM items i JOIN tree t ON i.parent_id=t.id WHERE i.is_folder=1 AND i.deleted_at "
         "IS NULL) SELECT * "
         "FROM items WHERE is_folder=0 AND deleted_at IS NULL AND parent_id IN tree",
         {},
         [](LocalIndex& index) { return index.liveFileItems().size(); }},
    };
}

std::vector<Query> transferQueries(int version) {
    const TransferRecord::Date now(std::chrono::seconds(1'900'000'000));
    // The layer names the index, so it does not run without.
    const auto layer = [=](LocalIndex& index) { return index.runnableTransfers(23, now).size(); };
    return {{"runnableTransfers_23",
             fmt::format(
                 "SELECT * FROM transfers {} WHERE state=0 AND next_attempt<=? ORDER BY created_at LIMIT ?",
                 version == 2 ? "" : "INDEXED BY transfers_waiting"),
             {sqlValue(now), std::int64_t{23}},
             version == 2 ? decltype(Query::layer)() : layer},
            {"nextTransferWakeup",
             "SELECT MIN(next_attempt) AS n FROM transfers WHERE state=0",
             {},
             [](LocalIndex& index) { return index.nextTransferWakeup() ? 1U : 0U; }}};
}

void readLayer(benchmark::State& state, const std::filesystem::path& file, const Query& query) {
    LocalIndex index(file);
    std::size_t rows = 0;
    for (auto _ : state) // NOLINT(readability-identifier-naming)
        rows = query.layer(index);
    state.counters["rows"] = static_cast<double>(rows);
}

void readBare(benchmark::State& state, const std::filesystem::path& file, const Query& query) {
    const SQLiteDatabase database(file);
    std::size_t rows = 0;
    for (auto _ : state) // NOLINT(readability-identifier-naming)
        rows = Statement(database.handle(), query.sql, query.args).run();
    state.counters["rows"] = static_cast<double>(rows);
}

void openAndClose(benchmark::State& state, const std::filesystem::path& file) {
    for (auto _ : state) // NOLINT(readability-identifier-naming)
        const LocalIndex index(file);
}

void openBare(benchmark::State& state, const std::filesystem::path& file) {
    for (auto _ : state) { // NOLINT(readability-identifier-naming)
        sqlite3* database = nullptr;
        check(
            sqlite3_open_v2(file.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr),
            SQLITE_OK);
        for (const auto* sql :
             {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=NORMAL", "PRAGMA foreign_keys=ON",
              "PRAGMA user_version", "PRAGMA user_version", "PRAGMA user_version"})
            check(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK);
        check(sqlite3_close_v2(database), SQLITE_OK);
    }
}

constexpr auto upsertion =
    "INSERT INTO "
    "items(id,is_folder,parent_id,name,name_lower,mime,size,sha256,mtime,blob_id,encrypted_size,chunk_count,"
    "wrapped_file_key,version,has_thumbnail,meta_enc,name_blind_index,created_at,updated_at,deleted_at,"
    "created_by_device,seq) "
    "VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?) ON CONFLICT(id) DO UPDATE SET "
    "is_folder=excluded.is_folder,"
    "parent_id=excluded.parent_id,name=excluded.name,name_lower=excluded.name_lower,mime=excluded.mime,size="
    "excluded.size,"
    "sha256=excluded.sha256,mtime=excluded.mtime,blob_id=excluded.blob_id,encrypted_size=excluded.encrypted_"
    "size,"
    "chunk_count=excluded.chunk_count,wrapped_file_key=excluded.wrapped_file_key,version=excluded.version,"
    "has_thumbnail=excluded.has_thumbnail,meta_enc=excluded.meta_enc,name_blind_index=excluded.name_blind_"
    "index,"
    "created_at=excluded.created_at,updated_at=excluded.updated_at,deleted_at=excluded.deleted_at,"
    "created_by_device=excluded.created_by_device,seq=MAX(items.seq, excluded.seq)";

/// One transaction with the statements LocalIndex uses, each prepared anew as there.
void upsertBareC(sqlite3* database, std::span<const IndexItem> items) {
    check(sqlite3_exec(database, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    for (const auto& i : items) {
        Statement(database, "SELECT parent_id FROM items WHERE id=?", {i.id}).run();
        Statement(database, upsertion,
                  {sqlValue(i.id),
                   sqlValue(i.isFolder),
                   sqlValue(i.parentId),
                   sqlValue(i.name),
                   sqlValue(KRCrypto::toLower(i.name)),
                   sqlValue(i.mime),
                   sqlValue(i.size),
                   sqlValue(i.sha256),
                   sqlValue(i.mtime),
                   sqlValue(i.blobId),
                   sqlValue(i.encryptedSize),
                   sqlValue(i.chunkCount),
                   sqlValue(i.wrappedFileKey),
                   sqlValue(i.version),
                   sqlValue(i.hasThumbnail),
                   sqlValue(i.metaEnc),
                   sqlValue(i.nameBlindIndex),
                   sqlValue(i.createdAt),
                   sqlValue(i.updatedAt),
                   sqlValue(i.deletedAt),
                   sqlValue(i.createdByDeviceId),
                   sqlValue(i.seq)})
            .run();
    }
    check(sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
}

using Upsert = std::function<void(std::span<const IndexItem>)>;

/// New items, so many in a transaction; they are gone again at the end.
void upsertNew(benchmark::State& state, SQLiteDatabase& database, std::int64_t count, std::size_t together,
               const Upsert& upsert) {
    std::vector<IndexItem> fresh;
    fresh.reserve(together * static_cast<std::size_t>(state.max_iterations));
    for (std::size_t i = 0; i < together * static_cast<std::size_t>(state.max_iterations); ++i)
        fresh.push_back(IndexTree::item(count + static_cast<std::int64_t>(i)));
    std::span<const IndexItem> left(fresh);
    for (auto _ : state) { // NOLINT(readability-identifier-naming)
        upsert(left.first(together));
        left = left.subspan(together);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(fresh.size()));
    database.run("DELETE FROM items WHERE seq>?", count);
    database.execute("PRAGMA wal_checkpoint(TRUNCATE)");
}

void insertTransferLayer(benchmark::State& state, const std::filesystem::path& file, std::int64_t count) {
    LocalIndex index(file);
    auto number = count;
    for (auto _ : state) { // NOLINT(readability-identifier-naming)
        index.insertTransfer(IndexTree::transfer(number), fmt::format("sync:root:{}", number));
        ++number;
    }
    SQLiteDatabase(file).run("DELETE FROM transfers WHERE created_at>=?",
                             IndexTree::transfer(count).createdAt);
}

void registerQueries(const char* kind, std::int64_t count, int version, const std::vector<Query>& queries) {
    const bool transfers = std::string_view(kind) == "transfers";
    const auto file = [=] {
        return transfers ? files().transfers(count, version) : files().items(count, version);
    };
    for (const auto& query : queries) {
        const auto name = fmt::format("{}/{}/v{}/", query.name, count, version);
        if (query.layer)
            benchmark::RegisterBenchmark((name + "layer").c_str(),
                                         [=](benchmark::State& state) { readLayer(state, file(), query); });
        benchmark::RegisterBenchmark((name + "bare").c_str(),
                                     [=](benchmark::State& state) { readBare(state, file(), query); });
    }
}

void registerUpserts(std::int64_t count, int version) {
    for (const std::size_t together : {std::size_t{1}, std::size_t{10'000}}) {
        const auto name = fmt::format("upsert_{}/{}/v{}/", together, count, version);
        const int iterations = together == 1 ? 2'000 : 2;
        benchmark::RegisterBenchmark((name + "layer").c_str(),
                                     [=](benchmark::State& state) {
                                         LocalIndex index(files().items(count, version));
                                         SQLiteDatabase database(index.url());
                                         upsertNew(state, database, count, together,
                                                   [&](auto items) { index.upsert(items); });
                                     })
            ->Iterations(iterations)
            ->UseRealTime();
        benchmark::RegisterBenchmark((name + "bare").c_str(),
                                     [=](benchmark::State& state) {
                                         SQLiteDatabase database(files().items(count, version));
                                         upsertNew(state, database, count, together, [&](auto items) {
                                             upsertBareC(database.handle(), items);
                                         });
                                     })
            ->Iterations(iterations)
            ->UseRealTime();
    }
}

void registerAll() {
    for (const std::int64_t count : {1'000, 100'000, 1'000'000}) {
        for (const int version : {2, 3}) {
            registerQueries("items", count, version, itemQueries(count));
            const auto name = fmt::format("open/{}/v{}/", count, version);
            const auto file = [=] { return files().items(count, version); };
            benchmark::RegisterBenchmark((name + "layer").c_str(),
                                         [=](benchmark::State& state) { openAndClose(state, file()); });
            benchmark::RegisterBenchmark((name + "bare").c_str(),
                                         [=](benchmark::State& state) { openBare(state, file()); });
            registerUpserts(count, version);
        }
    }
    for (const std::int64_t count : {100, 1'000, 10'000, 100'000}) {
        for (const int version : {2, 3}) {
            registerQueries("transfers", count, version, transferQueries(version));
            benchmark::RegisterBenchmark(fmt::format("insertTransfer/{}/v{}/layer", count, version).c_str(),
                                         [=](benchmark::State& state) {
                                             insertTransferLayer(state, files().transfers(count, version),
                                                                 count);
                                         });
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    registerAll();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
