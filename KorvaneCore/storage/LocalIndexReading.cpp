// Queries over items.
#include "KRCrypto/DropCrypto.hpp"
#include "KRCrypto/UnicodeText.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"

#include <algorithm>
#include <array>
#include <unordered_set>
#include <utility>

namespace Korvane {

namespace {

/// What reads everything below the folder ?1 into t(id, path). Each item has one parent, so the only way to
/// come by an item twice is through the folder itself, where parents run in a circle; it is passed over.
constexpr std::string_view walkDown =
    "WITH RECURSIVE t(id, path) AS (SELECT id, name FROM items WHERE parent_id=?1 AND deleted_at IS NULL "
    "AND id<>?1 UNION ALL SELECT i.id, t.path || '/' || i.name FROM items i JOIN t ON i.parent_id = t.id "
    "WHERE i.deleted_at IS NULL AND i.id<>?1) ";

/// As the index items_pictures has it, word for word: else it is not used.
constexpr auto* isPicture = "is_folder=0 AND deleted_at IS NULL AND mime>='image/' AND mime<'image0'";

template <SQLBindable... Args>
std::vector<IndexItem> select(SQLiteDatabase& database, const std::string& sql, const Args&... args) {
    std::vector<IndexItem> items;
    database.forEach(sql, std::array<SQLValue, sizeof...(Args)>{sqlValue(args)...},
                     [&](const SQLRow& row) { items.push_back(indexItem(row)); });
    return items;
}

std::optional<IndexItem> firstOf(const std::vector<SQLRow>& rows) {
    return rows.empty() ? std::nullopt : std::optional(indexItem(rows.front()));
}

std::optional<IndexItem> find(SQLiteDatabase& database, const std::string& id) {
    return firstOf(database.query("SELECT * FROM items WHERE id=?", id));
}

std::optional<IndexItem> findChild(SQLiteDatabase& database, const std::string& of, std::string_view named) {
    if (!KRCrypto::isUTF8(named))
        return std::nullopt;
    return firstOf(database.query(
        "SELECT * FROM items WHERE parent_id=? AND name_lower=? AND deleted_at IS NULL LIMIT 1", of,
        KRCrypto::toLower(named)));
}

/// The item with this id, its parent, and so on, for as long as `visit` gives true: up to a root, a parent
/// the index does not know, or an item that was visited before.
template <typename Visit>
void walkUp(SQLiteDatabase& database, std::string id, const Visit& visit) {
    std::unordered_set<std::string> seen;
    while (seen.insert(id).second) {
        auto item = find(database, id);
        if (!item)
            return;
        auto parent = item->parentId;
        if (!visit(std::move(*item)) || !parent)
            return;
        id = std::move(*parent);
    }
}

std::string likePattern(std::string_view text) {
    std::string pattern = "%";
    for (const char c : text) {
        if (c == '\\' || c == '%' || c == '_')
            pattern += '\\';
        pattern += c;
    }
    return pattern + '%';
}

} // namespace

std::optional<IndexItem> LocalIndex::item(const std::string& id) {
    const MutexLock lock(mutex_);
    return find(database_, id);
}

std::vector<IndexItem> LocalIndex::children(const std::string& of, bool includeDeleted) {
    const MutexLock lock(mutex_);
    return select(database_,
                  std::string("SELECT * FROM items WHERE parent_id=?") +
                      (includeDeleted ? "" : " AND deleted_at IS NULL") +
                      " ORDER BY is_folder DESC, name_lower",
                  of);
}

std::optional<IndexItem> LocalIndex::child(const std::string& of, std::string_view named) {
    const MutexLock lock(mutex_);
    return findChild(database_, of, named);
}

std::optional<IndexItem> LocalIndex::item(std::string_view atPath, const std::string& under) {
    const MutexLock lock(mutex_);
    std::optional<IndexItem> found;
    while (!atPath.empty()) {
        const auto name = atPath.substr(0, atPath.find('/'));
        atPath.remove_prefix(std::min(name.size() + 1, atPath.size()));
        if (name.empty())
            continue;
        found = findChild(database_, found ? found->id : under, name);
        if (!found)
            return std::nullopt;
    }
    return found ? found : find(database_, under);
}

std::vector<IndexItem> LocalIndex::roots() {
    const MutexLock lock(mutex_);
    return select(database_, "SELECT * FROM items WHERE parent_id IS NULL AND is_folder=1 AND deleted_at "
                             "IS NULL ORDER BY name_lower, id");
}

std::optional<std::vector<std::string>> LocalIndex::pathComponents(const std::string& of,
                                                                   const std::string& under) {
    const MutexLock lock(mutex_);
    std::vector<std::string> names;
    bool met = of == under;
    if (!met) {
        walkUp(database_, of, [&](IndexItem item) {
            names.push_back(std::move(item.name));
            met = item.parentId == under;
            return !met;
        });
    }
    std::ranges::reverse(names);
    return met ? std::optional(names) : std::nullopt;
}

std::vector<IndexItem> LocalIndex::ancestors(const std::string& of) {
    const MutexLock lock(mutex_);
    std::vector<IndexItem> chain;
    walkUp(database_, of, [&](IndexItem item) {
        if (item.id != of)
            chain.push_back(std::move(item));
        return true;
    });
    return chain;
}

bool LocalIndex::isDescendant(const std::string& id, const std::string& of) {
    return std::ranges::any_of(ancestors(id), [&](const IndexItem& item) { return item.id == of; });
}

std::vector<IndexItem> LocalIndex::search(std::string_view text, std::int64_t limit) {
    if (text.empty() || !KRCrypto::isUTF8(text))
        return {};
    const MutexLock lock(mutex_);
    return select(
        database_,
        "SELECT * FROM items WHERE deleted_at IS NULL AND parent_id IS NOT NULL AND name_lower LIKE ? ESCAPE "
        "'\\' ORDER BY is_folder DESC, name_lower LIMIT ?",
        likePattern(KRCrypto::toLower(text)), limit);
}

std::vector<IndexItem> LocalIndex::recentFiles(std::int64_t limit) {
    const MutexLock lock(mutex_);
    return select(
        database_,
        "SELECT * FROM items WHERE deleted_at IS NULL AND is_folder=0 ORDER BY updated_at DESC LIMIT ?",
        limit);
}

std::vector<IndexItem> LocalIndex::receivedFiles() {
    const MutexLock lock(mutex_);
    return select(database_,
                  "SELECT * FROM items WHERE is_folder=0 AND deleted_at IS NULL AND blob_id LIKE ?",
                  std::string(KRCrypto::DropCrypto::blobPrefix) + "%");
}

std::vector<IndexedPath> LocalIndex::descendants(const std::string& of) {
    const MutexLock lock(mutex_);
    std::vector<IndexedPath> found;
    database_.forEach(
        std::string(walkDown) + "SELECT items.*, t.path AS rel_path FROM t JOIN items ON items.id = t.id",
        std::array{sqlValue(of)},
        [&](const SQLRow& row) { found.push_back({row.string("rel_path").value_or(""), indexItem(row)}); });
    return found;
}

std::int64_t LocalIndex::folderSize(const std::string& id) {
    const MutexLock lock(mutex_);
    return database_
        .query(std::string(walkDown) +
                   "SELECT SUM(items.size) AS b FROM t JOIN items ON items.id = t.id WHERE items.is_folder=0",
               id)
        .at(0)
        .intValue("b")
        .value_or(0);
}

LocalIndex::Counts LocalIndex::counts() {
    const MutexLock lock(mutex_);
    const auto row = database_
                         .query("SELECT SUM(is_folder=0) AS f, SUM(is_folder=1) AS d, SUM(CASE WHEN "
                                "is_folder=0 THEN size ELSE 0 END) AS b FROM items WHERE deleted_at IS NULL")
                         .at(0);
    return {row.intValue("f").value_or(0), row.intValue("d").value_or(0), row.intValue("b").value_or(0)};
}

std::vector<IndexItem> LocalIndex::liveFileItems() {
    const MutexLock lock(mutex_);
    // From a root each item is met once, so this ends whatever the parents are.
    return select(
        database_,
        "WITH RECURSIVE tree(id) AS (SELECT id FROM items WHERE parent_id IS NULL AND is_folder=1 AND "
        "deleted_at IS NULL UNION ALL SELECT i.id FROM items i JOIN tree t ON i.parent_id=t.id WHERE "
        "i.is_folder=1 AND i.deleted_at IS NULL) SELECT * FROM items WHERE is_folder=0 AND deleted_at IS "
        "NULL AND parent_id IN tree");
}

std::vector<IndexItem> LocalIndex::items(std::int64_t changedAfter, std::int64_t limit) {
    const MutexLock lock(mutex_);
    return select(database_, "SELECT * FROM items WHERE seq > ? ORDER BY seq LIMIT ?", changedAfter, limit);
}

std::int64_t LocalIndex::maxItemSeq() {
    const MutexLock lock(mutex_);
    return database_.query("SELECT MAX(seq) AS s FROM items").at(0).intValue("s").value_or(0);
}

bool LocalIndex::isLive(const std::string& id) {
    const MutexLock lock(mutex_);
    bool reachesRoot = false;
    walkUp(database_, id, [&](const IndexItem& item) {
        reachesRoot = !item.deletedAt && !item.parentId && item.isFolder;
        return !item.deletedAt;
    });
    return reachesRoot;
}

std::vector<IndexItem> LocalIndex::reconciledPictures(Date from, Date to, std::int64_t limit,
                                                      std::int64_t offset) {
    const MutexLock lock(mutex_);
    return select(database_,
                  std::string("SELECT * FROM items WHERE ") + isPicture +
                      " AND COALESCE(mtime, created_at)>=? AND COALESCE(mtime, created_at)<? AND EXISTS "
                      "(SELECT 1 FROM sync_base AS b WHERE b.item_id=items.id AND b.is_folder=0 AND "
                      "(b.version=items.version OR b.sha256=items.sha256)) "
                      "ORDER BY COALESCE(mtime, created_at), id LIMIT ? OFFSET ?",
                  from, to, limit, offset);
}

std::optional<LocalIndex::Date> LocalIndex::earliestPicture() {
    const MutexLock lock(mutex_);
    const auto rows =
        database_.query(std::string("SELECT COALESCE(mtime, created_at) AS d FROM items WHERE ") + isPicture +
                        " AND COALESCE(mtime, created_at) IS NOT NULL ORDER BY "
                        "COALESCE(mtime, created_at) LIMIT 1");
    return rows.empty() ? std::nullopt : rows.front().date("d");
}

std::optional<LocalIndex::Bytes> LocalIndex::wrappedKey(const std::string& forBlobId) {
    const MutexLock lock(mutex_);
    const auto rows = database_.query(
        "SELECT wrapped_file_key FROM items WHERE blob_id=? AND wrapped_file_key IS NOT NULL LIMIT 1",
        forBlobId);
    return rows.empty() ? std::nullopt : rows.front().data("wrapped_file_key");
}

} // namespace Korvane
