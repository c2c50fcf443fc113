// Pins, camera assets, share keys and the activity log.
#include "KorvaneCore/storage/LocalIndex.hpp"

namespace Korvane {

std::map<std::string, std::int64_t> LocalIndex::pinnedIds() {
    const MutexLock lock(mutex_);
    std::map<std::string, std::int64_t> versions;
    for (const auto& row : database_.query("SELECT item_id, local_version FROM pinned"))
        versions.emplace(row.string("item_id").value_or(""), row.intValue("local_version").value_or(0));
    return versions;
}

std::vector<IndexItem> LocalIndex::pinnedItems() {
    const MutexLock lock(mutex_);
    std::vector<IndexItem> items;
    // From the few pins to their items, whatever the planner thinks of the sizes of both.
    database_.forEach("SELECT items.* FROM pinned CROSS JOIN items ON items.id=pinned.item_id WHERE "
                      "items.deleted_at IS NULL ORDER BY pinned.rowid",
                      {}, [&](const SQLRow& row) { items.push_back(indexItem(row)); });
    return items;
}

void LocalIndex::setPinned(const std::string& id, bool pinned) {
    const MutexLock lock(mutex_);
    database_.run(pinned ? "INSERT OR IGNORE INTO pinned(item_id, local_version) VALUES(?, 0)"
                         : "DELETE FROM pinned WHERE item_id=?",
                  id);
}

void LocalIndex::setPinnedVersion(const std::string& id, std::int64_t version,
                                  const std::optional<std::string>& path) {
    const MutexLock lock(mutex_);
    database_.run("UPDATE pinned SET local_version=?, local_path=? WHERE item_id=?", version, path, id);
}

std::set<std::string> LocalIndex::uploadedAssetIds() {
    const MutexLock lock(mutex_);
    std::set<std::string> ids;
    for (const auto& row : database_.query("SELECT local_id FROM camera_assets"))
        ids.insert(row.string("local_id").value_or(""));
    return ids;
}

void LocalIndex::markAssetUploaded(const std::string& localId, const std::optional<std::string>& fileId) {
    const MutexLock lock(mutex_);
    database_.run("INSERT OR REPLACE INTO camera_assets(local_id, file_id, uploaded_at) VALUES(?,?,?)",
                  localId, fileId, now());
}

std::int64_t LocalIndex::uploadedAssetCount() {
    const MutexLock lock(mutex_);
    return database_.query("SELECT COUNT(*) AS n FROM camera_assets").at(0).intValue("n").value_or(0);
}

void LocalIndex::saveShareKey(const std::string& shareId, const std::string& entityId,
                              std::span<const std::uint8_t> sealed) {
    const MutexLock lock(mutex_);
    database_.run("INSERT OR REPLACE INTO share_keys(share_id, entity_id, sealed) VALUES(?,?,?)", shareId,
                  entityId, sealed);
}

std::vector<LocalIndex::ShareKey> LocalIndex::shareKeys() {
    const MutexLock lock(mutex_);
    std::vector<ShareKey> keys;
    for (const auto& row : database_.query("SELECT * FROM share_keys"))
        keys.push_back({row.string("share_id").value_or(""), row.string("entity_id").value_or(""),
                        row.data("sealed").value_or(Bytes())});
    return keys;
}

void LocalIndex::removeShareKey(const std::string& shareId) {
    const MutexLock lock(mutex_);
    database_.run("DELETE FROM share_keys WHERE share_id=?", shareId);
}

void LocalIndex::log(const std::string& kind, const std::string& title,
                     const std::optional<std::string>& detail, bool isError) {
    const MutexLock lock(mutex_);
    database_.transaction([&](SQLiteDatabase& database) {
        database.run("INSERT INTO activity(at,kind,title,detail,is_error) VALUES(?,?,?,?,?)", now(), kind,
                     title, detail, isError);
        database.run("DELETE FROM activity WHERE id < (SELECT MAX(id) - 1000 FROM activity)");
    });
}

std::vector<LocalIndex::Activity> LocalIndex::recentActivity(std::int64_t limit) {
    const MutexLock lock(mutex_);
    std::vector<Activity> log;
    for (const auto& row : database_.query("SELECT * FROM activity ORDER BY id DESC LIMIT ?", limit))
        log.push_back({row.intValue("id").value_or(0), row.date("at").value_or(Date()),
                       row.string("kind").value_or(""), row.string("title").value_or(""),
                       row.string("detail"), row.boolValue("is_error")});
    return log;
}

} // namespace Korvane
