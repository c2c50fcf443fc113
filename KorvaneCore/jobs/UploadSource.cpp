#include "KorvaneCore/jobs/UploadSource.hpp"

#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/Hex.hpp"
#include "KorvaneCore/jobs/Unchanged.hpp"
#include "KorvaneCore/media/MediaType.hpp"
#include "KorvaneCore/platform/FileStatus.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"

#include <utility>

namespace Korvane {

namespace ChunkCrypto = KRCrypto::ChunkCrypto;

// The content is what the source held when it was hashed; nothing else is sealed from then on.
asio::awaitable<void> UploadSource::find() {
    const std::filesystem::path source = work_.job.sourcePath;
    const auto stat = co_await offload([source] {
        const auto status = fileStatus(source);
        if (!status)
            throw TransferQueue::PermanentFailure("Source file no longer exists");
        if (status->kind != FileStatus::Kind::file)
            throw TransferQueue::PermanentFailure("Only regular files can be uploaded");
        return localStat(source);
    });
    if (!stat)
        throw TransferQueue::PermanentFailure("Source file no longer exists");
    work_.content = co_await recordedContent(*stat);
    if (!work_.content)
        work_.content = co_await newContent(*stat);
    work_.blobId = work_.job.blobId.value_or("");
}

// None when the source is not what the job recorded. Size and date do not tell that alone: a program may have
// restored them.
asio::awaitable<std::shared_ptr<const SourceContent>> UploadSource::recordedContent(LocalStat stat) {
    if (!work_.job.sha256 || !work_.job.plainSize || !work_.job.blobId || work_.job.sourceStat != stat)
        co_return nullptr;
    auto content = uploads_.hashed(work_.job.sourcePath, stat);
    if (!content)
        content = co_await hashed(stat);
    co_return content->sha256() == work_.job.sha256 ? content : nullptr;
}

asio::awaitable<std::shared_ptr<const SourceContent>> UploadSource::newContent(LocalStat stat) {
    co_await giveUpContent(stat);
    if (ChunkCrypto::chunkCount(stat.size, work_.context.chunkSize) > KRCrypto::maxParts)
        throw APIError(APIError::BadRequest{"File too large (max 10000 parts)"});
    const std::filesystem::path source = work_.job.sourcePath;
    if (!work_.job.mime)
        work_.job.mime =
            co_await offload([&] { return whileUnchanged(source, stat, [&] { return mediaType(source); }); });
    auto content = co_await hashed(stat);
    work_.job.sha256 = content->sha256();
    work_.job.plainSize = stat.size;
    work_.job.blobId = work_.masterKey->blobId(KRCrypto::Hex::decode(content->sha256()));
    work_.save();
    co_return content;
}

asio::awaitable<std::shared_ptr<const SourceContent>> UploadSource::hashed(LocalStat stat) {
    auto content = co_await SourceContent::read(work_.job.sourcePath, stat, work_.context.chunkSize);
    uploads_.keep(content);
    co_return content;
}

asio::awaitable<void> UploadSource::giveUpContent(LocalStat stat) {
    const bool hadKey = work_.job.wrappedFileKey.has_value();
    if (hadKey)
        co_await settleOldContent();
    work_.job.uploadId.reset();
    work_.job.wrappedFileKey.reset();
    work_.job.sha256.reset();
    work_.job.plainSize.reset();
    work_.job.blobId.reset();
    work_.job.sourceStat = stat;
    if (hadKey)
        work_.save();
}

// Once there is a key, the old content may have become a file, or a version, whose answer was lost. The new
// one is then based on that; were it not, this device would be in conflict with itself.
asio::awaitable<void> UploadSource::settleOldContent() {
    if (work_.job.uploadId)
        co_await endSession(*work_.job.uploadId);
    try {
        const auto file = co_await work_.context.api->file(work_.job.fileId.value_or(work_.job.clientFileId));
        if (work_.isOwn(file))
            work_.baseOn(file);
    } catch (const APIError& error) {
        if (!error.is<APIError::NotFound>())
            throw;
    }
}

// One that is over already, or that the service does not let go of, is left to it.
asio::awaitable<void> UploadSource::endSession(std::string uploadId) {
    try {
        co_await work_.context.api->abortUpload(std::move(uploadId));
    } catch (const APIError& error) {
        if (error.isRetryable() || error.is<APIError::Cancelled>())
            throw;
    }
}

} // namespace Korvane
