#include "KorvaneService/Tree.hpp"

#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneService/Columns.hpp"
#include "KorvaneService/TreeRecords.hpp"

#include <algorithm>
#include <utility>

namespace Korvane {

namespace {

constexpr std::size_t longestId = 64;
constexpr std::size_t largestMeta = std::size_t{256} << 10;

void requireId(const std::string& id) {
    const auto isPlain = [](unsigned char c) { return std::isalnum(c) != 0 || c == '-' || c == '_'; };
    if (id.empty() || id.size() > longestId || !std::ranges::all_of(id, isPlain))
        throw Refusal::badRequest("an identifier has 1 to 64 letters, digits, \"-\" and \"_\"");
}

void requireMeta(const KRCrypto::Bytes& metaEnc, const std::string& nameBlindIndex) {
    if (metaEnc.empty() || nameBlindIndex.empty())
        throw Refusal::badRequest("an item has metadata and a name");
    if (metaEnc.size() > largestMeta || nameBlindIndex.size() > longestId * 2)
        throw Refusal::tooLarge();
}

// Everything but the root folder has a name.
template <class Item>
std::string nameOf(const Item& item) {
    return Columns::required(item.nameBlindIndex, "name_blind_index");
}

} // namespace

Tree::Tree(ServiceState& state, SQLiteDatabase& database, Session session)
    : state_(&state), database_(&database), session_(std::move(session)), feed_(state, database, session_) {}

void Tree::createRoot(const std::string& id) const {
    const auto now = state_->now();
    database_->run("INSERT INTO folders (id, user_id, created_at, updated_at, seq) VALUES (?,?,?,?,0)", id,
                   session_.userId, now, now);
    recorded(id, "create");
}

RemoteFolder Tree::folder(const std::string& id) const {
    const auto rows =
        database_->query("SELECT * FROM folders WHERE id = ? AND user_id = ?", id, session_.userId);
    if (rows.empty())
        throw Refusal::folderMissing(id, false);
    return remoteFolder(rows[0]);
}

RemoteFile Tree::file(const std::string& id) const {
    const auto rows =
        database_->query(std::string(selectFiles) + "f.id = ? AND f.user_id = ?", id, session_.userId);
    if (rows.empty())
        throw Refusal::notFound("no such file");
    return remoteFile(rows[0]);
}

bool Tree::hasFile(const std::string& id) const {
    return !database_->query("SELECT 1 FROM files WHERE id = ? AND user_id = ?", id, session_.userId).empty();
}

std::vector<FileVersion> Tree::versions(const std::string& fileId) const {
    [[maybe_unused]] const auto existing = file(fileId);
    std::vector<FileVersion> result;
    for (const auto& row : database_->query("SELECT v.*, b.encrypted_size, b.chunk_count FROM versions v "
                                            "JOIN blobs b ON b.user_id = v.user_id AND b.blob_id = v.blob_id "
                                            "WHERE v.file_id = ? ORDER BY v.version DESC",
                                            fileId))
        result.push_back(fileVersion(row));
    return result;
}

ChildrenPage Tree::page(const std::optional<std::string>& folderId, const std::optional<std::string>& cursor,
                        std::int64_t limit) const {
    // A cursor is the kind and identifier of the last item given.
    const bool inFiles = cursor && cursor->starts_with("file:");
    if (cursor && !inFiles && !cursor->starts_with("folder:"))
        throw Refusal::badRequest("no such cursor");
    const auto last = cursor ? cursor->substr(cursor->find(':') + 1) : "";
    const auto select = [&](const std::string& statement, const std::string& table, const std::string& parent,
                            const std::string& after, std::int64_t most) {
        std::vector<SQLValue> arguments{session_.userId, after, most};
        if (folderId)
            arguments.emplace_back(*folderId);
        const auto where = folderId ? table + parent + " = ?4 AND " + table + "deleted_at IS NULL"
                                    : table + "deleted_at IS NOT NULL";
        return database_->query(statement + table + "user_id = ?1 AND " + where + " AND " + table +
                                    "id > ?2 ORDER BY " + table + "id LIMIT ?3",
                                arguments);
    };
    ChildrenPage page;
    if (!inFiles)
        for (const auto& row : select("SELECT * FROM folders WHERE ", "folders.", "parent_id", last, limit))
            page.folders.push_back(remoteFolder(row));
    const auto room = limit - std::ssize(page.folders);
    if (room == 0) {
        page.nextCursor = "folder:" + page.folders.back().id;
        return page;
    }
    for (const auto& row : select(selectFiles, "f.", "folder_id", inFiles ? last : "", room))
        page.files.push_back(remoteFile(row));
    if (std::ssize(page.files) == room)
        page.nextCursor = "file:" + page.files.back().id;
    return page;
}

RemoteFolder Tree::createFolder(const CreateFolderRequest& request) const {
    const auto id = request.id.value_or(newUUID());
    requireId(id);
    requireMeta(request.metaEnc, request.nameBlindIndex);
    const auto rows =
        database_->query("SELECT * FROM folders WHERE id = ? AND user_id = ?", id, session_.userId);
    if (!rows.empty() && remoteFolder(rows[0]).metaEnc == request.metaEnc)
        return remoteFolder(rows[0]);
    requireNewId(id);
    requireLiveFolder(request.parentId);
    requireFreeName(request.parentId, request.nameBlindIndex, id);
    const auto now = state_->now();
    database_->run(
        "INSERT INTO folders (id, user_id, parent_id, meta_enc, name_blind_index, created_at, updated_at, "
        "seq) VALUES (?,?,?,?,?,?,?,0)",
        id, session_.userId, request.parentId, request.metaEnc, request.nameBlindIndex, now, now);
    return recorded(id, "create");
}

RemoteFolder Tree::updateFolder(const std::string& id, const UpdateFolderRequest& request) const {
    const auto current = folder(id);
    if (!current.parentId)
        throw Refusal::badRequest("the root folder stays as it is");
    if (current.deletedAt)
        throw Refusal::folderMissing(id, true);
    if (request.baseUpdatedAt && request.baseUpdatedAt != current.updatedAt)
        throw Refusal::versionConflict(std::nullopt);
    const auto parent = request.parentId.value_or(*current.parentId);
    const auto name = request.nameBlindIndex.value_or(nameOf(current));
    const auto meta = request.metaEnc.value_or(Columns::required(current.metaEnc, "meta_enc"));
    requireMeta(meta, name);
    if (parent != current.parentId) {
        requireLiveFolder(parent);
        requireOutside(id, parent);
    }
    requireFreeName(parent, name, id);
    database_->run(
        "UPDATE folders SET parent_id = ?, name_blind_index = ?, meta_enc = ?, updated_at = ? WHERE id = ?",
        parent, name, meta, state_->now(), id);
    return recorded(id, parent != current.parentId ? "move" : "update");
}

RemoteFolder Tree::setFolderTrashed(const std::string& id, bool trashed) const {
    const auto current = folder(id);
    if (!current.parentId)
        throw Refusal::badRequest("the root folder stays as it is");
    if (current.deletedAt.has_value() == trashed)
        return current;
    if (!trashed) {
        requireLiveFolder(*current.parentId);
        requireFreeName(*current.parentId, nameOf(current), id);
    }
    const auto now = state_->now();
    database_->run("UPDATE folders SET deleted_at = ?, updated_at = ? WHERE id = ?",
                   trashed ? std::optional(now) : std::nullopt, now, id);
    return recorded(id, trashed ? "delete" : "restore");
}

RemoteFile Tree::createFile(const CreateFileRequest& request) const {
    requireMeta(request.metaEnc, request.nameBlindIndex);
    const auto blob = database_->query("SELECT * FROM blobs WHERE user_id = ? AND blob_id = ?",
                                       session_.userId, request.blobId);
    if (blob.empty())
        throw Refusal::notFound("no such blob");
    if (blob[0].intValue("encrypted_size") != request.encryptedSize ||
        blob[0].intValue("chunk_count") != request.chunkCount)
        throw Refusal::badRequest("the blob has another size");
    if (request.fileId)
        return addVersionTo(file(*request.fileId), request);

    const auto id = request.id.value_or(newUUID());
    requireId(id);
    if (hasFile(id)) {
        auto made = file(id);
        if (made.blobId == request.blobId && made.wrappedFileKey == request.wrappedFileKey)
            return made;
        throw Refusal::versionConflict(made);
    }
    requireNewId(id);
    requireLiveFolder(request.folderId);
    requireFreeName(request.folderId, request.nameBlindIndex, id);
    const auto now = state_->now();
    database_->run(
        "INSERT INTO files (id, user_id, folder_id, meta_enc, name_blind_index, version, created_at, "
        "updated_at, seq) VALUES (?,?,?,?,?,1,?,?,0)",
        id, session_.userId, request.folderId, request.metaEnc, request.nameBlindIndex, now, now);
    addVersion(id, 1, request.blobId, request.wrappedFileKey, request.metaEnc, request.nameBlindIndex);
    return recordedFile(id, "create");
}

RemoteFile Tree::addVersionTo(const RemoteFile& current, const CreateFileRequest& request) const {
    if (current.blobId == request.blobId && current.wrappedFileKey == request.wrappedFileKey &&
        current.metaEnc == request.metaEnc)
        return current;
    if (current.deletedAt)
        throw Refusal::notFound("the file is in the trash");
    if (request.baseVersion && *request.baseVersion != current.version)
        throw Refusal::versionConflict(current);
    requireLiveFolder(current.folderId);
    requireFreeName(current.folderId, request.nameBlindIndex, current.id);
    addVersion(current.id, current.version + 1, request.blobId, request.wrappedFileKey, request.metaEnc,
               request.nameBlindIndex);
    database_->run(
        "UPDATE files SET version = version + 1, meta_enc = ?, name_blind_index = ?, has_thumbnail = 0, "
        "updated_at = ? WHERE id = ?",
        request.metaEnc, request.nameBlindIndex, state_->now(), current.id);
    return recordedFile(current.id, "version");
}

RemoteFile Tree::updateFile(const std::string& id, const UpdateFileRequest& request) const {
    const auto current = file(id);
    if (current.deletedAt)
        throw Refusal::notFound("the file is in the trash");
    if (request.baseVersion && *request.baseVersion != current.version)
        throw Refusal::versionConflict(current);
    const auto folderId = request.folderId.value_or(current.folderId);
    const auto name = request.nameBlindIndex.value_or(nameOf(current));
    const auto meta = request.metaEnc.value_or(current.metaEnc);
    requireMeta(meta, name);
    requireLiveFolder(folderId);
    requireFreeName(folderId, name, id);
    database_->run(
        "UPDATE files SET folder_id = ?, name_blind_index = ?, meta_enc = ?, updated_at = ? WHERE id = ?",
        folderId, name, meta, state_->now(), id);
    database_->run("UPDATE versions SET name_blind_index = ?, meta_enc = ? WHERE file_id = ? AND version = ?",
                   name, meta, id, current.version);
    return recordedFile(id, folderId != current.folderId ? "move" : "update");
}

RemoteFile Tree::setFileTrashed(const std::string& id, bool trashed) const {
    const auto current = file(id);
    if (current.deletedAt.has_value() == trashed)
        return current;
    if (!trashed) {
        requireLiveFolder(current.folderId);
        requireFreeName(current.folderId, nameOf(current), id);
    }
    const auto now = state_->now();
    database_->run("UPDATE files SET deleted_at = ?, updated_at = ? WHERE id = ?",
                   trashed ? std::optional(now) : std::nullopt, now, id);
    return recordedFile(id, trashed ? "delete" : "restore");
}

RemoteFile Tree::restoreVersion(const std::string& id, std::int64_t version) const {
    const auto current = file(id);
    const auto rows = database_->query("SELECT v.*, b.encrypted_size, b.chunk_count FROM versions v "
                                       "JOIN blobs b ON b.user_id = v.user_id AND b.blob_id = v.blob_id "
                                       "WHERE v.file_id = ? AND v.version = ?",
                                       id, version);
    if (rows.empty())
        throw Refusal::notFound("no such version");
    const auto old = fileVersion(rows[0]);
    CreateFileRequest request;
    request.folderId = current.folderId;
    request.metaEnc = old.metaEnc;
    request.nameBlindIndex = Columns::text(rows[0], "name_blind_index");
    request.blobId = old.blobId;
    request.wrappedFileKey = old.wrappedFileKey;
    request.chunkCount = old.chunkCount;
    request.encryptedSize = old.encryptedSize;
    return addVersionTo(current, request);
}

void Tree::setHasThumbnail(const std::string& fileId) const {
    [[maybe_unused]] const auto existing = file(fileId);
    database_->run("UPDATE files SET has_thumbnail = 1 WHERE id = ?", fileId);
    recordedFile(fileId, "update");
}

void Tree::purge(const std::string& id, std::vector<std::filesystem::path>& discarded) const {
    if (hasFile(id)) {
        if (!file(id).deletedAt)
            throw Refusal::notFound("the file is not in the trash");
        removeFile(id, discarded);
    } else {
        if (!folder(id).deletedAt)
            throw Refusal::notFound("the folder is not in the trash");
        removeFolder(id, discarded);
    }
    removeUnusedBlobs(discarded);
}

void Tree::purgeTrash(std::vector<std::filesystem::path>& discarded) const {
    for (const auto& row : database_->query(
             "SELECT id FROM files WHERE user_id = ? AND deleted_at IS NOT NULL", session_.userId))
        removeFile(Columns::text(row, "id"), discarded);
    for (const auto& row : database_->query(
             "SELECT id FROM folders WHERE user_id = ? AND deleted_at IS NOT NULL", session_.userId))
        removeFolder(Columns::text(row, "id"), discarded);
    removeUnusedBlobs(discarded);
}

void Tree::requireLiveFolder(const std::string& id) const {
    for (std::optional<std::string> at = id; at;) {
        const auto ancestor = folder(*at);
        if (ancestor.deletedAt)
            throw Refusal::folderMissing(id, true);
        at = ancestor.parentId;
    }
}

void Tree::requireFreeName(const std::string& folderId, const std::string& nameBlindIndex,
                           const std::string& exceptId) const {
    const auto taken = database_->query("SELECT 1 FROM folders WHERE parent_id = ?1 AND name_blind_index = "
                                        "?2 AND deleted_at IS NULL AND id <> ?3 "
                                        "UNION ALL SELECT 1 FROM files WHERE folder_id = ?1 AND "
                                        "name_blind_index = ?2 AND deleted_at IS NULL AND "
                                        "id <> ?3 LIMIT 1",
                                        folderId, nameBlindIndex, exceptId);
    if (!taken.empty())
        throw Refusal::nameConflict();
}

void Tree::requireNewId(const std::string& id) const {
    if (!database_
             ->query("SELECT 1 FROM folders WHERE id = ?1 UNION ALL SELECT 1 FROM files WHERE id = ?1", id)
             .empty())
        throw Refusal::conflict("id_taken", "the identifier is taken");
}

// Every folder's way to the root is finite, as no move may close a circle.
void Tree::requireOutside(const std::string& folderId, const std::string& target) const {
    for (std::optional<std::string> at = target; at; at = folder(*at).parentId)
        if (*at == folderId)
            throw Refusal::badRequest("a folder cannot move into itself");
}

void Tree::addVersion(const std::string& fileId, std::int64_t version, const std::string& blobId,
                      const KRCrypto::Bytes& wrappedFileKey, const KRCrypto::Bytes& metaEnc,
                      const std::string& nameBlindIndex) const {
    if (wrappedFileKey.empty())
        throw Refusal::badRequest("a file has a wrapped key");
    database_->run("INSERT INTO versions (file_id, version, user_id, blob_id, wrapped_file_key, meta_enc, "
                   "name_blind_index, created_at, created_by_device_id) VALUES (?,?,?,?,?,?,?,?,?)",
                   fileId, version, session_.userId, blobId, wrappedFileKey, metaEnc, nameBlindIndex,
                   state_->now(), session_.deviceId);
}

RemoteFolder Tree::recorded(const std::string& folderId, std::string_view op) const {
    const auto seq = feed_.nextSeq();
    database_->run("UPDATE folders SET seq = ? WHERE id = ?", seq, folderId);
    auto record = folder(folderId);
    feed_.record("folder", folderId, op, seq, KRJSON::write(record));
    return record;
}

RemoteFile Tree::recordedFile(const std::string& fileId, std::string_view op) const {
    const auto seq = feed_.nextSeq();
    database_->run("UPDATE files SET seq = ? WHERE id = ?", seq, fileId);
    auto record = file(fileId);
    feed_.record("file", fileId, op, seq, KRJSON::write(record));
    return record;
}

void Tree::removeFile(const std::string& id, std::vector<std::filesystem::path>& discarded) const {
    if (database_->run("DELETE FROM files WHERE id = ?", id) == 0)
        return; // with its folder
    discarded.push_back(state_->blobs().thumbnailFile(id));
    feed_.record("file", id, "purge", feed_.nextSeq(), std::nullopt);
}

void Tree::removeFolder(const std::string& id, std::vector<std::filesystem::path>& discarded) const {
    for (const auto& row : database_->query("SELECT id FROM files WHERE folder_id = ?", id))
        removeFile(Columns::text(row, "id"), discarded);
    for (const auto& row : database_->query("SELECT id FROM folders WHERE parent_id = ?", id))
        removeFolder(Columns::text(row, "id"), discarded);
    if (database_->run("DELETE FROM folders WHERE id = ?", id) > 0)
        feed_.record("folder", id, "purge", feed_.nextSeq(), std::nullopt);
}

void Tree::removeUnusedBlobs(std::vector<std::filesystem::path>& discarded) const {
    static const std::string unused =
        " FROM blobs WHERE user_id = ?1 AND NOT EXISTS (SELECT 1 FROM versions v "
        "WHERE v.user_id = blobs.user_id AND v.blob_id = blobs.blob_id)";
    for (const auto& row : database_->query("SELECT folder" + unused, session_.userId))
        discarded.push_back(state_->blobs().blobFolder(Columns::text(row, "folder")));
    database_->run("DELETE" + unused, session_.userId);
}

} // namespace Korvane
