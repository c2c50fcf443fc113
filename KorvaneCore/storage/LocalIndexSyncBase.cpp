// The sync base.
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/PathPrefix.hpp"

#include <bit>

namespace Korvane {

namespace {

LocalIndex::BaseEntry baseEntry(const SQLRow& row) {
    return {
        .relPath = row.string("rel_path").value_or(""),
        .itemId = row.string("item_id").value_or(""),
        .isFolder = row.boolValue("is_folder"),
        .version = row.intValue("version").value_or(0),
        .localSize = row.intValue("local_size").value_or(0),
        .localMtime = row.doubleValue("local_mtime").value_or(0),
        .inode = std::bit_cast<std::uint64_t>(row.intValue("inode").value_or(0)),
        .sha256 = row.string("sha256"),
    };
}

} // namespace

std::map<std::string, LocalIndex::BaseEntry> LocalIndex::baseEntries(const std::string& root) {
    const MutexLock lock(mutex_);
    std::map<std::string, BaseEntry> entries;
    for (const auto& row : database_.query("SELECT * FROM sync_base WHERE root_id=?", root)) {
        auto entry = baseEntry(row);
        auto path = entry.relPath;
        entries.emplace(std::move(path), std::move(entry));
    }
    return entries;
}

void LocalIndex::setBase(const std::string& root, const BaseEntry& entry) {
    const MutexLock lock(mutex_);
    database_.run("INSERT INTO "
                  "sync_base(root_id,rel_path,item_id,is_folder,version,local_size,local_mtime,inode,sha256) "
                  "VALUES(?,?,?,?,?,?,?,?,?) ON CONFLICT(root_id,rel_path) DO UPDATE SET "
                  "item_id=excluded.item_id,is_folder=excluded.is_folder,version=excluded.version,"
                  "local_size=excluded.local_size,local_mtime=excluded.local_mtime,inode=excluded.inode,"
                  "sha256=excluded.sha256",
                  root, entry.relPath, entry.itemId, entry.isFolder, entry.version, entry.localSize,
                  entry.localMtime, std::bit_cast<std::int64_t>(entry.inode), entry.sha256);
}

void LocalIndex::removeBase(const std::string& root, const std::string& relPath, bool recursive) {
    const MutexLock lock(mutex_);
    database_.transaction([&](SQLiteDatabase& database) {
        database.run("DELETE FROM sync_base WHERE root_id=? AND rel_path=?", root, relPath);
        if (recursive) {
            const PathPrefix below(relPath);
            database.run("DELETE FROM sync_base WHERE root_id=? AND substr(rel_path,1,?)=?", root,
                         below.length, below.text);
        }
    });
}

void LocalIndex::moveBase(const std::string& root, const std::string& from, const std::string& to) {
    const MutexLock lock(mutex_);
    const PathPrefix below(from);
    database_.transaction([&](SQLiteDatabase& database) {
        const auto rows = database.query(
            "SELECT rel_path FROM sync_base WHERE root_id=? AND (rel_path=? OR substr(rel_path,1,?)=?)", root,
            from, below.length, below.text);
        for (const auto& row : rows) {
            const auto path = row.string("rel_path").value_or("");
            database.run("UPDATE sync_base SET rel_path=? WHERE root_id=? AND rel_path=?",
                         to + path.substr(from.size()), root, path);
        }
    });
}

void LocalIndex::clearBase(const std::string& root) {
    const MutexLock lock(mutex_);
    database_.run("DELETE FROM sync_base WHERE root_id=?", root);
}

std::vector<LocalIndex::ItemBase> LocalIndex::basesOf(const std::string& itemId) {
    const MutexLock lock(mutex_);
    std::vector<ItemBase> bases;
    for (const auto& row :
         database_.query("SELECT * FROM sync_base WHERE item_id=? ORDER BY root_id, rel_path", itemId))
        bases.push_back({row.string("root_id").value_or(""), baseEntry(row)});
    return bases;
}

std::optional<LocalIndex::BaseLocation> LocalIndex::baseLocation(const std::string& itemId,
                                                                 std::int64_t version) {
    const MutexLock lock(mutex_);
    const auto rows = database_.query("SELECT root_id, rel_path FROM sync_base WHERE item_id=? AND version=? "
                                      "AND is_folder=0 LIMIT 1",
                                      itemId, version);
    if (rows.empty())
        return std::nullopt;
    return BaseLocation{rows.front().string("root_id").value_or(""),
                        rows.front().string("rel_path").value_or("")};
}

} // namespace Korvane
