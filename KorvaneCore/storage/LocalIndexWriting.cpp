// Writing items, and the journal.
#include "KRCrypto/UnicodeText.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"

namespace Korvane {

namespace {

using JournalKind = LocalIndex::JournalKind;

constexpr auto upsertion =
    "INSERT INTO items(id,is_folder,parent_id,name,name_lower,mime,size,sha256,mtime,blob_id,encrypted_size,"
    "chunk_count,wrapped_file_key,version,has_thumbnail,meta_enc,name_blind_index,created_at,updated_at,"
    "deleted_at,created_by_device,seq) VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?) "
    "ON CONFLICT(id) DO UPDATE SET "
    "is_folder=excluded.is_folder,parent_id=excluded.parent_id,name=excluded.name,"
    "name_lower=excluded.name_lower,mime=excluded.mime,size=excluded.size,sha256=excluded.sha256,"
    "mtime=excluded.mtime,blob_id=excluded.blob_id,encrypted_size=excluded.encrypted_size,"
    "chunk_count=excluded.chunk_count,wrapped_file_key=excluded.wrapped_file_key,version=excluded.version,"
    "has_thumbnail=excluded.has_thumbnail,meta_enc=excluded.meta_enc,"
    "name_blind_index=excluded.name_blind_index,created_at=excluded.created_at,"
    "updated_at=excluded.updated_at,deleted_at=excluded.deleted_at,"
    "created_by_device=excluded.created_by_device,seq=MAX(items.seq, excluded.seq)";

std::optional<std::string> storedParent(SQLiteDatabase& database, const std::string& id) {
    const auto rows = database.query("SELECT parent_id FROM items WHERE id=?", id);
    return rows.empty() ? std::nullopt : rows.front().string("parent_id");
}

void journal(SQLiteDatabase& database, const LocalIndex::JournalEntry& entry) {
    database.run("INSERT INTO item_journal(seq,item_id,old_parent_id,kind) VALUES(?,?,?,?)", entry.seq,
                 entry.itemId, entry.oldParentId, static_cast<std::int64_t>(entry.kind));
    database.run("DELETE FROM item_journal WHERE id <= (SELECT MAX(id) FROM item_journal) - ?",
                 LocalIndex::journalCapacity);
}

/// Inside a transaction: another process must neither move the item between the look at its parent and the
/// write, nor read the journal's entry without the item it is about.
void write(SQLiteDatabase& database, const IndexItem& i) {
    if (const auto parent = storedParent(database, i.id); parent && parent != i.parentId)
        journal(database, {i.seq, i.id, parent, JournalKind::movedOut});
    database.run(upsertion, i.id, i.isFolder, i.parentId, i.name, KRCrypto::toLower(i.name), i.mime, i.size,
                 i.sha256, i.mtime, i.blobId, i.encryptedSize, i.chunkCount, i.wrappedFileKey, i.version,
                 i.hasThumbnail, i.metaEnc, i.nameBlindIndex, i.createdAt, i.updatedAt, i.deletedAt,
                 i.createdByDeviceId, i.seq);
}

LocalIndex::JournalEntry journalEntry(const SQLRow& row) {
    return {row.intValue("seq").value_or(0), row.string("item_id").value_or(""), row.string("old_parent_id"),
            JournalKind{row.intValue("kind").value_or(0)}};
}

} // namespace

void LocalIndex::upsert(const IndexItem& item) {
    upsert(std::span(&item, 1));
}

void LocalIndex::upsert(std::span<const IndexItem> items) {
    const MutexLock lock(mutex_);
    database_.transaction([&](SQLiteDatabase& database) {
        for (const auto& item : items)
            write(database, item);
    });
}

void LocalIndex::apply(const RemoteFolder& folder, const KRCrypto::MasterKey& masterKey) {
    upsert(indexItem(folder, masterKey));
}

void LocalIndex::apply(const RemoteFile& file, const KRCrypto::MasterKey& masterKey) {
    upsert(indexItem(file, masterKey));
}

void LocalIndex::remove(const std::string& id) {
    const MutexLock lock(mutex_);
    database_.run("DELETE FROM items WHERE id=?", id);
}

void LocalIndex::purge(const std::string& id, std::int64_t seq) {
    const MutexLock lock(mutex_);
    database_.transaction([&](SQLiteDatabase& database) {
        const auto parent = storedParent(database, id);
        database.run("DELETE FROM items WHERE id=?", id);
        journal(database, {seq, id, parent, JournalKind::purged});
    });
}

void LocalIndex::markDeleted(const std::string& id, Date at) {
    const MutexLock lock(mutex_);
    database_.run("UPDATE items SET deleted_at=? WHERE id=?", at, id);
}

void LocalIndex::setHasThumbnail(const std::string& id, bool has) {
    const MutexLock lock(mutex_);
    database_.run("UPDATE items SET has_thumbnail=? WHERE id=?", has, id);
}

std::vector<LocalIndex::JournalEntry> LocalIndex::journalEntries(std::int64_t after, std::int64_t upTo) {
    const MutexLock lock(mutex_);
    std::vector<JournalEntry> entries;
    for (const auto& row : database_.query(
             "SELECT * FROM item_journal WHERE seq > ? AND seq <= ? ORDER BY seq, id", after, upTo))
        entries.push_back(journalEntry(row));
    return entries;
}

std::int64_t LocalIndex::maxJournalSeq() {
    const MutexLock lock(mutex_);
    return database_.query("SELECT MAX(seq) AS s FROM item_journal").at(0).intValue("s").value_or(0);
}

} // namespace Korvane
