#include "KorvaneCore/storage/IndexInspector.hpp"

#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/SQLiteError.hpp"

#include <algorithm>
#include <array>
#include <system_error>

namespace Korvane {

namespace {

constexpr std::size_t maxExamples = 10;

/// A query that finds nothing in a sound index; otherwise its column "id" names what is wrong.
struct Check {
    std::int32_t since; ///< the version of the schema it needs
    const char* what;
    const char* sql;
};

constexpr std::array checks{
    Check{1, "Items lie in a folder the index does not know.",
          "SELECT id FROM items AS i WHERE parent_id IS NOT NULL AND NOT EXISTS (SELECT 1 FROM items WHERE "
          "id=i.parent_id)"},
    Check{
        1, "Items lie in a file.",
        "SELECT id FROM items AS i WHERE EXISTS (SELECT 1 FROM items WHERE id=i.parent_id AND is_folder=0)"},
    Check{
        1, "Items lie in folders that lie in each other.",
        "WITH RECURSIVE t(id) AS (SELECT id FROM items AS i WHERE parent_id IS NULL OR NOT EXISTS (SELECT 1 "
        "FROM items WHERE id=i.parent_id) UNION ALL SELECT i.id FROM items i JOIN t ON i.parent_id=t.id) "
        "SELECT id FROM items WHERE id NOT IN t"},
    Check{1, "Items have a negative sequence number.", "SELECT id FROM items WHERE seq<0"},
    Check{1, "The cursor in the change feed is no number.",
          "SELECT value AS id FROM kv WHERE key='lastSeq' AND (value GLOB '*[^0-9]*' OR value='' OR value IS "
          "NULL)"},
    Check{2, "The journal has a newer change of an item than the item itself.",
          "SELECT DISTINCT items.id FROM item_journal AS j JOIN items ON items.id=j.item_id WHERE "
          "items.seq<j.seq"},
    Check{2, "The journal has entries of an unknown kind.",
          "SELECT item_id AS id FROM item_journal WHERE kind NOT IN (0,1)"},
};

std::int64_t number(const SQLRow& row, const char* column) {
    return row.intValue(column).value_or(0);
}

std::int64_t sizeOnDisk(const std::filesystem::path& url) {
    std::int64_t size = 0;
    for (const char* suffix : {"", "-wal"}) {
        std::error_code missing; // there need not be a second file
        const auto part = std::filesystem::file_size(url.string() + suffix, missing);
        size += missing ? 0 : static_cast<std::int64_t>(part);
    }
    return size;
}

/// None when `column` of the rows names nothing wrong.
std::optional<IndexProblem> problem(const char* what, const std::vector<SQLRow>& rows, const char* column) {
    if (rows.empty())
        return std::nullopt;
    IndexProblem found{what, static_cast<std::int64_t>(rows.size()), {}};
    for (std::size_t i = 0; i < std::min(rows.size(), maxExamples); ++i)
        found.examples.push_back(rows[i].string(column).value_or(""));
    return found;
}

std::optional<IndexProblem> damage(SQLiteDatabase& database) {
    constexpr auto what = "The file is damaged.";
    try {
        auto found = database.query("PRAGMA integrity_check");
        std::erase_if(found, [](const SQLRow& row) { return row.string("integrity_check") == "ok"; });
        return problem(what, found, "integrity_check");
    } catch (const SQLiteError& error) {
        return IndexProblem{what, 1, {error.what()}}; // the check itself gave up
    }
}

} // namespace

IndexInspector::IndexInspector(const std::filesystem::path& url) : database_(url, true) {
    // Never ended: it holds the moment until the connection is closed.
    database_.execute("BEGIN");
    version_ = database_.userVersion();
}

IndexStatistics IndexInspector::statistics() {
    IndexStatistics found;
    found.schemaVersion = version_;
    found.fileSize = sizeOnDisk(database_.url());
    const auto items =
        database_
            .query("SELECT SUM(deleted_at IS NULL AND is_folder=0) AS f, SUM(deleted_at IS NULL "
                   "AND is_folder=1) AS d, SUM(CASE WHEN deleted_at IS NULL AND is_folder=0 THEN "
                   "size ELSE 0 END) AS b, SUM(deleted_at IS NOT NULL) AS t, MAX(seq) AS s FROM "
                   "items")
            .at(0);
    found.files = number(items, "f");
    found.folders = number(items, "d");
    found.bytes = number(items, "b");
    found.trashed = number(items, "t");
    found.maxItemSeq = number(items, "s");
    const auto cursor = database_.query("SELECT value FROM kv WHERE key='lastSeq'");
    found.lastSeq = cursor.empty() ? std::nullopt : cursor.front().string("value");
    if (version_ >= 2)
        found.journalEntries = number(database_.query("SELECT COUNT(*) AS n FROM item_journal").at(0), "n");
    const auto transfers =
        database_
            .query("SELECT SUM(state=0) AS pending, SUM(state=1) AS running, SUM(state=2) AS failed, "
                   "SUM(state=3) AS done, SUM(state=4) AS paused FROM transfers")
            .at(0);
    found.transfers = {number(transfers, "pending"), number(transfers, "running"),
                       number(transfers, "failed"), number(transfers, "done"), number(transfers, "paused")};
    found.pinned = number(database_.query("SELECT COUNT(*) AS n FROM pinned").at(0), "n");
    return found;
}

std::vector<IndexProblem> IndexInspector::problems() {
    // Nothing can be said about the content of a damaged file.
    if (auto found = damage(database_))
        return {*std::move(found)};

    std::vector<IndexProblem> found;
    for (const auto& check : checks) {
        if (version_ < check.since)
            continue;
        if (auto one = problem(check.what, database_.query(check.sql), "id"))
            found.push_back(*std::move(one));
    }
    if (version_ >= 2) {
        const auto entries = statistics().journalEntries;
        if (entries > LocalIndex::journalCapacity)
            found.push_back({"The journal holds more entries than are kept.", entries, {}});
    }
    return found;
}

} // namespace Korvane
