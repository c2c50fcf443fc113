#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneService/Columns.hpp"
#include "KorvaneService/StorageURL.hpp"
#include "KorvaneService/Tree.hpp"
#include "KorvaneService/routes/Paging.hpp"
#include "KorvaneService/routes/Routes.hpp"

namespace Korvane {

namespace {

constexpr std::size_t largestThumbnail = std::size_t{2} << 20;

Tree treeOf(Exchange& exchange) {
    return {exchange.state, exchange.database, exchange.session};
}

Reply get(Exchange& exchange) {
    return answer(FileEnvelope{treeOf(exchange).file(exchange.parameter("id"))});
}

Reply create(Exchange& exchange) {
    return answer(FileEnvelope{treeOf(exchange).createFile(exchange.body<CreateFileRequest>())});
}

Reply update(Exchange& exchange) {
    return answer(FileEnvelope{
        treeOf(exchange).updateFile(exchange.parameter("id"), exchange.body<UpdateFileRequest>())});
}

template <bool Trashed>
Reply setTrashed(Exchange& exchange) {
    return answer(FileEnvelope{treeOf(exchange).setFileTrashed(exchange.parameter("id"), Trashed)});
}

Reply versions(Exchange& exchange) {
    return answer(VersionsResponse{treeOf(exchange).versions(exchange.parameter("id"))});
}

Reply restoreVersion(Exchange& exchange) {
    const auto& text = exchange.parameter("version");
    std::int64_t version = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), version);
    if (error != std::errc() || end != text.data() + text.size())
        throw Refusal::notFound("no such version");
    return answer(FileEnvelope{treeOf(exchange).restoreVersion(exchange.parameter("id"), version)});
}

Reply download(Exchange& exchange) {
    const auto file = treeOf(exchange).file(exchange.parameter("id"));
    const auto blob = exchange.database.query("SELECT folder FROM blobs WHERE user_id = ? AND blob_id = ?",
                                              exchange.session.userId, file.blobId);
    DownloadInfo info;
    info.url = StorageURL::getBlob(exchange.state, Columns::text(blob.at(0), "folder"));
    info.expiresAt = StorageURL::expiry(exchange.state);
    info.blobId = file.blobId;
    info.encryptedSize = file.encryptedSize;
    info.chunkCount = file.chunkCount;
    info.wrappedFileKey = file.wrappedFileKey;
    info.version = file.version;
    return answer(info);
}

Reply putThumbnail(Exchange& exchange) {
    const auto& bytes = exchange.request.body;
    if (bytes.empty() || bytes.size() > largestThumbnail)
        throw Refusal::tooLarge();
    const auto tree = treeOf(exchange);
    tree.setHasThumbnail(exchange.parameter("id"));
    replaceFile(exchange.state.blobs().thumbnailFile(exchange.parameter("id")), KRCrypto::asText(bytes));
    return noContent();
}

Reply getThumbnail(Exchange& exchange) {
    const auto file = treeOf(exchange).file(exchange.parameter("id"));
    if (!file.hasThumbnail.value_or(false))
        throw Refusal::notFound("the file has no thumbnail");
    Reply reply;
    reply.contentType = "application/octet-stream";
    reply.body = readFile(exchange.state.blobs().thumbnailFile(file.id), largestThumbnail);
    return reply;
}

} // namespace

void addFileRoutes(Router& router) {
    using enum Router::Access;
    router.add("GET", "/v1/files/{id}", device, get);
    router.add("POST", "/v1/files", device, create);
    router.add("PATCH", "/v1/files/{id}", device, update);
    router.add("DELETE", "/v1/files/{id}", device, setTrashed<true>);
    router.add("POST", "/v1/files/{id}/restore", device, setTrashed<false>);
    router.add("GET", "/v1/files/{id}/versions", device, versions);
    router.add("POST", "/v1/files/{id}/versions/{version}/restore", device, restoreVersion);
    router.add("GET", "/v1/files/{id}/download", device, download);
    router.add("PUT", "/v1/files/{id}/thumbnail", device, putThumbnail);
    router.add("GET", "/v1/files/{id}/thumbnail", device, getThumbnail);
}

} // namespace Korvane
