#include "KorvaneCore/api/records/Uploads.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneService/Columns.hpp"
#include "KorvaneService/StorageURL.hpp"
#include "KorvaneService/Tree.hpp"
#include "KorvaneService/routes/Routes.hpp"

#include <algorithm>
#include <set>

namespace Korvane {

namespace {

constexpr std::size_t longestBlobId = 128;

struct Upload {
    std::string id;
    std::string blobId;
    std::int64_t encryptedSize = 0;
    std::int64_t chunkCount = 0;
    Clock::Time expiresAt;
    std::optional<std::string> fileId; ///< of the file it became
};

Upload found(Exchange& exchange) {
    const auto rows = exchange.database.query("SELECT * FROM uploads WHERE id = ? AND user_id = ?",
                                              exchange.parameter("id"), exchange.session.userId);
    if (rows.empty())
        throw Refusal::notFound("no such upload");
    const auto& row = rows[0];
    Upload upload{Columns::text(row, "id"),
                  Columns::text(row, "blob_id"),
                  Columns::integer(row, "encrypted_size"),
                  Columns::integer(row, "chunk_count"),
                  Columns::date(row, "expires_at"),
                  row.string("file_id")};
    if (upload.expiresAt <= exchange.state.now())
        throw Refusal::expired("the upload has expired");
    return upload;
}

/// Those that were put and are still there.
std::set<std::int64_t> partsOf(Exchange& exchange, const Upload& upload) {
    std::set<std::int64_t> parts;
    for (const auto& row :
         exchange.database.query("SELECT part_number FROM upload_parts WHERE upload_id = ?", upload.id))
        if (const auto part = Columns::integer(row, "part_number");
            exchange.state.blobs().holdsPart(upload.id, part, upload.encryptedSize))
            parts.insert(part);
    return parts;
}

std::vector<UploadPart> partList(Exchange& exchange, const Upload& upload) {
    const auto uploaded = partsOf(exchange, upload);
    std::vector<UploadPart> parts;
    for (std::int64_t part = 1; part <= upload.chunkCount; ++part)
        parts.push_back(
            {part, StorageURL::putPart(exchange.state, upload.id, part), uploaded.contains(part)});
    return parts;
}

/// The wrapped key of any version with this blob, where the service tells it.
std::optional<KRCrypto::Bytes> knownKey(Exchange& exchange, const std::string& blobId) {
    if (!exchange.state.settings().tellsFileKeys)
        return std::nullopt;
    const auto rows = exchange.database.query(
        "SELECT wrapped_file_key FROM versions WHERE user_id = ? AND blob_id = ? LIMIT 1",
        exchange.session.userId, blobId);
    return rows.empty() ? std::nullopt : rows[0].data("wrapped_file_key");
}

void requireRoom(Exchange& exchange, std::int64_t bytes) {
    const auto row = exchange.database
                         .query("SELECT quota_bytes, (SELECT COALESCE(SUM(encrypted_size), 0) FROM blobs "
                                "WHERE user_id = ?1) + (SELECT COALESCE(SUM(encrypted_size), 0) FROM uploads "
                                "WHERE user_id = ?1 AND file_id IS NULL) AS used FROM users WHERE id = ?1",
                                exchange.session.userId)
                         .at(0);
    if (bytes > Columns::integer(row, "quota_bytes") - Columns::integer(row, "used"))
        throw Refusal::quotaExceeded();
}

void removeExpired(Exchange& exchange) {
    const auto now = exchange.state.now();
    for (const auto& row : exchange.database.query(
             "SELECT id FROM uploads WHERE user_id = ? AND expires_at <= ?", exchange.session.userId, now))
        exchange.discarded.push_back(exchange.state.blobs().uploadFolder(Columns::text(row, "id")));
    exchange.database.run("DELETE FROM uploads WHERE user_id = ? AND expires_at <= ?",
                          exchange.session.userId, now);
}

Reply create(Exchange& exchange) {
    const auto request = exchange.body<CreateUploadRequest>();
    if (request.blobId.empty() || request.blobId.size() > longestBlobId)
        throw Refusal::badRequest("a blob has an identifier");
    const auto& blobs = exchange.state.blobs();
    if (!blobs.isLayout(request.encryptedSize, request.chunkCount))
        throw Refusal::invalidPartLayout("so many parts do not make a blob of this size");
    CreateUploadResponse response;
    response.blobId = request.blobId;
    const auto existing =
        exchange.database.query("SELECT encrypted_size FROM blobs WHERE user_id = ? AND blob_id = ?",
                                exchange.session.userId, request.blobId);
    if (!existing.empty()) {
        response.status = "exists";
        response.wrappedFileKey = knownKey(exchange, request.blobId);
        return answer(response);
    }
    removeExpired(exchange);
    requireRoom(exchange, request.encryptedSize);
    const Upload upload{newUUID(),
                        request.blobId,
                        request.encryptedSize,
                        request.chunkCount,
                        exchange.state.now() + exchange.state.settings().uploadLifetime,
                        {}};
    exchange.database.run(
        "INSERT INTO uploads (id, user_id, blob_id, encrypted_size, chunk_count, expires_at) "
        "VALUES (?,?,?,?,?,?)",
        upload.id, exchange.session.userId, upload.blobId, upload.encryptedSize, upload.chunkCount,
        upload.expiresAt);
    blobs.beginUpload(upload.id);
    response.status = "created";
    response.uploadId = upload.id;
    response.parts = partList(exchange, upload);
    response.expiresAt = StorageURL::expiry(exchange.state);
    response.uploadExpiresAt = upload.expiresAt;
    return answer(response);
}

Reply status(Exchange& exchange) {
    const auto upload = found(exchange);
    UploadStatusResponse response;
    response.uploadId = upload.id;
    response.state = upload.fileId ? "completed" : "open";
    response.parts = partList(exchange, upload);
    response.expiresAt = StorageURL::expiry(exchange.state);
    response.uploadExpiresAt = upload.expiresAt;
    return answer(response);
}

void requireAllParts(Exchange& exchange, const Upload& upload) {
    const auto uploaded = partsOf(exchange, upload);
    std::vector<std::int64_t> missing;
    for (std::int64_t part = 1; part <= upload.chunkCount; ++part)
        if (!uploaded.contains(part))
            missing.push_back(part);
    if (!missing.empty())
        throw Refusal::partsMissing(missing);
}

bool addBlob(Exchange& exchange, const Upload& upload) {
    return exchange.database.run("INSERT OR IGNORE INTO blobs (user_id, blob_id, folder, encrypted_size, "
                                 "chunk_count) VALUES (?,?,?,?,?)",
                                 exchange.session.userId, upload.blobId, upload.id, upload.encryptedSize,
                                 upload.chunkCount) > 0;
}

void forget(Exchange& exchange, const Upload& upload) {
    exchange.database.run("DELETE FROM uploads WHERE id = ?", upload.id);
    const auto& blobs = exchange.state.blobs();
    exchange.discarded.push_back(blobs.uploadFolder(upload.id));
    exchange.discarded.push_back(blobs.blobFolder(upload.id)); // where a completion failed last
}

// Of two uploads of one content the first to complete is kept, with its key. The other ends here, and its
// client finds the blob when it begins again. An answer and no refusal, so that the end is kept.
Reply beaten(Exchange& exchange, const Upload& upload) {
    forget(exchange, upload);
    Reply reply;
    reply.status = 503;
    reply.body = Refusal(503, "blob_exists", "this content was stored meanwhile").envelope();
    return reply;
}

// The parts become the blob last, when nothing can be refused any more: until then the same upload can be
// completed again, under another name say.
Reply complete(Exchange& exchange) {
    const auto request = exchange.body<CompleteUploadRequest>();
    const auto upload = found(exchange);
    const Tree tree(exchange.state, exchange.database, exchange.session);
    if (upload.fileId)
        return answer(FileEnvelope{tree.file(*upload.fileId)});
    requireAllParts(exchange, upload);
    if (!addBlob(exchange, upload))
        return beaten(exchange, upload);
    CreateFileRequest creation;
    creation.id = request.id;
    creation.folderId = request.folderId;
    creation.metaEnc = request.metaEnc;
    creation.nameBlindIndex = request.nameBlindIndex;
    creation.blobId = upload.blobId;
    creation.wrappedFileKey = request.wrappedFileKey;
    creation.chunkCount = upload.chunkCount;
    creation.encryptedSize = upload.encryptedSize;
    creation.fileId = request.fileId;
    creation.baseVersion = request.baseVersion;
    const auto file = tree.createFile(creation);
    exchange.database.run("UPDATE uploads SET file_id = ? WHERE id = ?", file.id, upload.id);
    exchange.state.blobs().finishUpload(upload.id);
    return answer(FileEnvelope{file});
}

Reply abort(Exchange& exchange) {
    const auto upload = found(exchange);
    if (upload.fileId)
        throw Refusal::conflict("completed", "the upload is complete");
    forget(exchange, upload);
    return noContent();
}

} // namespace

void addUploadRoutes(Router& router) {
    using enum Router::Access;
    router.add("POST", "/v1/uploads", device, create);
    router.add("GET", "/v1/uploads/{id}", device, status);
    router.add("POST", "/v1/uploads/{id}/complete", device, complete);
    router.add("POST", "/v1/uploads/{id}/abort", device, abort);
}

} // namespace Korvane
