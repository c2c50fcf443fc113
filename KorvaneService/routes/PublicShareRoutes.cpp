#include "KorvaneCore/api/records/Entries.hpp"
#include "KorvaneCore/api/records/PublicShares.hpp"
#include "KorvaneCore/api/records/Shares.hpp"
#include "KorvaneService/Columns.hpp"
#include "KorvaneService/StorageURL.hpp"
#include "KorvaneService/routes/Routes.hpp"

namespace Korvane {

namespace {

/// The share that a link leads to now.
SQLRow live(Exchange& exchange) {
    const auto rows =
        exchange.database.query("SELECT * FROM shares WHERE token = ?", exchange.parameter("token"));
    if (rows.empty())
        throw Refusal::notFound("no such share");
    if (rows[0].date("revoked_at"))
        throw Refusal(410, "expired", "the share was revoked", {{"reason", "revoked"}});
    if (const auto expires = rows[0].date("expires_at"); expires && *expires <= exchange.state.now())
        throw Refusal::expired("the share has expired");
    return rows[0];
}

/// `column` is "views" or "downloads".
void count(Exchange& exchange, const std::string& shareId, const std::string& column) {
    exchange.database.run("INSERT INTO share_counts (share_id, " + column +
                              ") VALUES (?, 1) ON CONFLICT DO UPDATE SET " + column + " = " + column + " + 1",
                          shareId);
}

Reply get(Exchange& exchange) {
    const auto share = live(exchange);
    const auto id = Columns::text(share, "id");
    PublicShare answered;
    answered.passwordSalt = share.data("password_salt");
    answered.expiresAt = share.date("expires_at");
    for (const auto& row : exchange.database.query(
             "SELECT entry FROM share_entries WHERE share_id = ? ORDER BY entry_id", id)) {
        auto entry = KRJSON::read<ShareEntry>(Columns::text(row, "entry"));
        answered.entries.push_back({std::move(entry.entryId), std::move(entry.parentEntryId),
                                    std::move(entry.metaEnc), std::move(entry.wrappedKey),
                                    entry.encryptedSize, entry.chunkCount});
    }
    count(exchange, id, "views");
    return answer(answered);
}

/// What lies in the trash, or below something there, is shared no longer.
void requireLiveFile(Exchange& exchange, const std::string& fileId, const std::string& userId) {
    const auto rows = exchange.database.query(
        "WITH RECURSIVE up(id, parent_id, deleted_at) AS ("
        "SELECT id, folder_id, deleted_at FROM files WHERE id = ?1 AND user_id = ?2 "
        "UNION SELECT f.id, f.parent_id, f.deleted_at FROM folders f JOIN up ON f.id = up.parent_id) "
        "SELECT COUNT(*) AS links, COUNT(deleted_at) AS deleted FROM up",
        fileId, userId);
    if (Columns::integer(rows.at(0), "links") == 0 || Columns::integer(rows.at(0), "deleted") > 0)
        throw Refusal::notFound("the file is no longer there");
}

Reply download(Exchange& exchange) {
    const auto share = live(exchange);
    const auto id = Columns::text(share, "id");
    const auto userId = Columns::text(share, "user_id");
    const auto rows =
        exchange.database.query("SELECT entry FROM share_entries WHERE share_id = ? AND entry_id = ?", id,
                                exchange.parameter("entryId"));
    if (rows.empty())
        throw Refusal::notFound("no such entry");
    const auto entry = KRJSON::read<ShareEntry>(Columns::text(rows[0], "entry"));
    requireLiveFile(exchange, entry.entityId, userId);
    const auto blobs = exchange.database.query("SELECT * FROM blobs WHERE user_id = ? AND blob_id = ?",
                                               userId, entry.blobId);
    if (blobs.empty())
        throw Refusal::notFound("the content is no longer there");
    DownloadInfo info;
    info.url = StorageURL::getBlob(exchange.state, Columns::text(blobs[0], "folder"));
    info.expiresAt = StorageURL::expiry(exchange.state);
    info.encryptedSize = Columns::integer(blobs[0], "encrypted_size");
    info.chunkCount = Columns::integer(blobs[0], "chunk_count");
    count(exchange, id, "downloads");
    return answer(info);
}

} // namespace

void addPublicShareRoutes(Router& router) {
    using enum Router::Access;
    router.add("GET", "/v1/public/shares/{token}", open, get);
    router.add("GET", "/v1/public/shares/{token}/entries/{entryId}/download", open, download);
}

} // namespace Korvane
