#include "KorvaneCore/api/APIClientCall.hpp"
#include "KorvaneCore/api/PageCursor.hpp"

#include <algorithm>
#include <iterator>

namespace Korvane {

using Call = APICall;

// Every operation takes its arguments by value, whether or not it is a coroutine itself.
// NOLINTBEGIN(performance-unnecessary-value-param)

namespace {

Call page(std::string path, std::optional<std::string> cursor, int limit) {
    Call call{.method = "GET", .path = std::move(path), .maxAnswerSize = AnswerLimit::list};
    if (cursor)
        call.query.emplace_back("cursor", *std::move(cursor));
    call.query.emplace_back("limit", std::to_string(limit));
    return call;
}

} // namespace

asio::awaitable<RemoteFolder> APIClient::folder(std::string id) {
    auto answer = co_await call<FolderEnvelope>({.method = "GET", .path = "/folders" + Call::segment(id)});
    co_return std::move(answer.folder);
}

asio::awaitable<ChildrenPage> APIClient::children(std::string of, std::optional<std::string> cursor,
                                                  int limit) {
    return call<ChildrenPage>(page("/folders" + Call::segment(of) + "/children", std::move(cursor), limit));
}

asio::awaitable<ChildrenPage> APIClient::allChildren(std::string of) {
    constexpr int pageSize = 500;
    ChildrenPage all;
    for (PageCursor cursor;;) {
        auto next = co_await children(of, cursor.value(), pageSize);
        std::move(next.folders.begin(), next.folders.end(), std::back_inserter(all.folders));
        std::move(next.files.begin(), next.files.end(), std::back_inserter(all.files));
        if (!cursor.advance(std::move(next.nextCursor), "ChildrenPage"))
            co_return all;
    }
}

asio::awaitable<RemoteFolder> APIClient::createFolder(CreateFolderRequest request) {
    auto answer =
        co_await call<FolderEnvelope>({.method = "POST", .path = "/folders", .body = Call::json(request)});
    co_return std::move(answer.folder);
}

asio::awaitable<RemoteFolder> APIClient::updateFolder(std::string id, UpdateFolderRequest request) {
    auto answer = co_await call<FolderEnvelope>(
        {.method = "PATCH", .path = "/folders" + Call::segment(id), .body = Call::json(request)});
    co_return std::move(answer.folder);
}

asio::awaitable<RemoteFolder> APIClient::deleteFolder(std::string id) {
    auto answer = co_await call<FolderEnvelope>({.method = "DELETE", .path = "/folders" + Call::segment(id)});
    co_return std::move(answer.folder);
}

asio::awaitable<RemoteFolder> APIClient::restoreFolder(std::string id) {
    auto answer = co_await call<FolderEnvelope>(
        {.method = "POST", .path = "/folders" + Call::segment(id) + "/restore"});
    co_return std::move(answer.folder);
}

asio::awaitable<RemoteFile> APIClient::file(std::string id) {
    auto answer = co_await call<FileEnvelope>({.method = "GET", .path = "/files" + Call::segment(id)});
    co_return std::move(answer.file);
}

asio::awaitable<RemoteFile> APIClient::createFile(CreateFileRequest request) {
    auto answer =
        co_await call<FileEnvelope>({.method = "POST", .path = "/files", .body = Call::json(request)});
    co_return std::move(answer.file);
}

asio::awaitable<RemoteFile> APIClient::updateFile(std::string id, UpdateFileRequest request) {
    auto answer = co_await call<FileEnvelope>(
        {.method = "PATCH", .path = "/files" + Call::segment(id), .body = Call::json(request)});
    co_return std::move(answer.file);
}

asio::awaitable<RemoteFile> APIClient::deleteFile(std::string id) {
    auto answer = co_await call<FileEnvelope>({.method = "DELETE", .path = "/files" + Call::segment(id)});
    co_return std::move(answer.file);
}

asio::awaitable<RemoteFile> APIClient::restoreFile(std::string id) {
    auto answer =
        co_await call<FileEnvelope>({.method = "POST", .path = "/files" + Call::segment(id) + "/restore"});
    co_return std::move(answer.file);
}

asio::awaitable<std::vector<FileVersion>> APIClient::versions(std::string of) {
    auto answer = co_await call<VersionsResponse>({.method = "GET",
                                                   .path = "/files" + Call::segment(of) + "/versions",
                                                   .maxAnswerSize = AnswerLimit::list});
    co_return std::move(answer.versions);
}

asio::awaitable<RemoteFile> APIClient::restoreVersion(std::string fileId, std::int64_t version) {
    auto answer = co_await call<FileEnvelope>({.method = "POST",
                                               .path = "/files" + Call::segment(fileId) + "/versions" +
                                                       Call::segment(std::to_string(version)) + "/restore"});
    co_return std::move(answer.file);
}

asio::awaitable<DownloadInfo> APIClient::downloadInfo(std::string fileId) {
    return call<DownloadInfo>({.method = "GET", .path = "/files" + Call::segment(fileId) + "/download"});
}

asio::awaitable<void> APIClient::uploadThumbnail(std::string fileId, KRCrypto::Bytes sealed) {
    return call<void>({.method = "PUT",
                       .path = "/files" + Call::segment(fileId) + "/thumbnail",
                       .body = KRCrypto::SecretBytes::copyOf(sealed),
                       .contentType = "application/octet-stream"});
}

asio::awaitable<KRCrypto::Bytes> APIClient::thumbnail(std::string fileId) {
    auto answer = co_await perform({.method = "GET",
                                    .path = "/files" + Call::segment(fileId) + "/thumbnail",
                                    .accept = "application/octet-stream",
                                    .maxAnswerSize = AnswerLimit::thumbnail},
                                   "thumbnail");
    co_return std::move(answer.body);
}

asio::awaitable<ChildrenPage> APIClient::trash(std::optional<std::string> cursor, int limit) {
    return call<ChildrenPage>(page("/trash", std::move(cursor), limit));
}

asio::awaitable<TrashRestoreResponse> APIClient::restoreFromTrash(std::string id) {
    return call<TrashRestoreResponse>({.method = "POST", .path = "/trash" + Call::segment(id) + "/restore"});
}

asio::awaitable<void> APIClient::deletePermanently(std::string id) {
    return call<void>({.method = "DELETE", .path = "/trash" + Call::segment(id)});
}

asio::awaitable<void> APIClient::emptyTrash() {
    return call<void>({.method = "DELETE", .path = "/trash"});
}

asio::awaitable<CreateUploadResponse> APIClient::createUpload(CreateUploadRequest request) {
    return call<CreateUploadResponse>({.method = "POST",
                                       .path = "/uploads",
                                       .body = Call::json(request),
                                       .maxAnswerSize = AnswerLimit::list});
}

asio::awaitable<UploadStatusResponse> APIClient::uploadStatus(std::string id) {
    return call<UploadStatusResponse>(
        {.method = "GET", .path = "/uploads" + Call::segment(id), .maxAnswerSize = AnswerLimit::list});
}

asio::awaitable<RemoteFile> APIClient::completeUpload(std::string id, CompleteUploadRequest request) {
    auto answer = co_await call<FileEnvelope>({.method = "POST",
                                               .path = "/uploads" + Call::segment(id) + "/complete",
                                               .body = Call::json(request)});
    co_return std::move(answer.file);
}

asio::awaitable<void> APIClient::abortUpload(std::string id) {
    return call<void>({.method = "POST", .path = "/uploads" + Call::segment(id) + "/abort"});
}

asio::awaitable<ChangesPage> APIClient::changes(std::int64_t since, int limit) {
    return call<ChangesPage>({.method = "GET",
                              .path = "/changes",
                              .query = {{"since", std::to_string(since)}, {"limit", std::to_string(limit)}},
                              .maxAnswerSize = AnswerLimit::list});
}

// NOLINTEND(performance-unnecessary-value-param)

} // namespace Korvane
