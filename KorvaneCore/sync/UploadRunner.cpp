#include "KorvaneCore/sync/UploadRunner.hpp"

#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/media/MediaType.hpp"
#include "KorvaneCore/media/Thumbnail.hpp"
#include "KorvaneCore/platform/FileStatus.hpp"
#include "KorvaneCore/platform/LocalCalendar.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneCore/storage/SQLValue.hpp"
#include "KorvaneCore/sync/Both.hpp"
#include "KorvaneCore/sync/FileNames.hpp"
#include "KorvaneCore/sync/KnownKeys.hpp"
#include "KorvaneCore/sync/TransferQueue.hpp"
#include "KorvaneCore/sync/Unchanged.hpp"

#include <algorithm>
#include <utility>

namespace Korvane {

using KRCrypto::KRCryptoError;
namespace ChunkCrypto = KRCrypto::ChunkCrypto;

namespace {

constexpr int mostRounds = 6;
constexpr std::int64_t mostNameAttempts = 100;
constexpr int mostConflicts = 10;
constexpr std::int64_t largestPicture = std::int64_t{256} << 20;
constexpr std::size_t largestThumbnail = std::size_t{1} << 20;

const char* stateOf(const APIError::FolderMissing& missing) {
    return missing.trashed ? "is in the Trash" : "no longer exists";
}

} // namespace

/// What the lanes of sendMissing share. They run on one strand.
struct SendState {
    PartPlan& plan;
    std::vector<PartPlan::Part> parts;
    std::size_t next = 0;
    std::int64_t progress = 0; ///< plaintext bytes
    bool urlsExpired = false;
};

UploadRunner::UploadRunner(const JobContext& context, TransferRun& run, UploadState& uploads, UploadJob job)
    : context_(context), run_(run), uploads_(uploads), job_(std::move(job)) {}

asio::awaitable<TransferOutcome::Uploaded> UploadRunner::upload() {
    masterKey_ = co_await context_.masterKey();
    co_await hashSource();
    RemoteFile file;
    try {
        file = co_await store();
    } catch (const KRCryptoError&) {
        uploads_.forget(job_.sourcePath); // it may have changed under the same looks
        throw;
    }
    uploads_.forget(job_.sourcePath);
    context_.index->apply(file, *masterKey_);
    co_await addThumbnail(file);
    auto done = job_;
    done.name = name();
    co_return TransferOutcome::Uploaded{std::move(done), file};
}

// The content is what the source held when it was hashed; nothing else is sealed from then on.
asio::awaitable<void> UploadRunner::hashSource() {
    const std::filesystem::path source = job_.sourcePath;
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
    content_ = co_await recordedContent(*stat);
    if (!content_)
        content_ = co_await newContent(*stat);
}

// None when the source is not what the job recorded. Size and date do not tell that alone: a program may have
// restored them.
asio::awaitable<std::shared_ptr<const SourceContent>> UploadRunner::recordedContent(LocalStat stat) {
    if (!job_.sha256 || !job_.plainSize || !job_.blobId || job_.sourceStat != stat)
        co_return nullptr;
    auto content = uploads_.hashed(job_.sourcePath, stat);
    if (!content)
        content = co_await hashed(stat);
    co_return content->sha256() == job_.sha256 ? content : nullptr;
}

asio::awaitable<std::shared_ptr<const SourceContent>> UploadRunner::newContent(LocalStat stat) {
    co_await giveUpContent(stat);
    if (ChunkCrypto::chunkCount(stat.size, context_.chunkSize) > KRCrypto::maxParts)
        throw APIError(APIError::BadRequest{"File too large (max 10000 parts)"});
    const std::filesystem::path source = job_.sourcePath;
    if (!job_.mime)
        job_.mime =
            co_await offload([&] { return whileUnchanged(source, stat, [&] { return mediaType(source); }); });
    auto content = co_await hashed(stat);
    job_.sha256 = content->sha256();
    job_.plainSize = stat.size;
    job_.blobId = masterKey_->blobId(KRCrypto::Hex::decode(content->sha256()));
    save();
    co_return content;
}

asio::awaitable<std::shared_ptr<const SourceContent>> UploadRunner::hashed(LocalStat stat) {
    auto content = co_await SourceContent::read(job_.sourcePath, stat, context_.chunkSize);
    uploads_.keep(content);
    co_return content;
}

asio::awaitable<void> UploadRunner::giveUpContent(LocalStat stat) {
    const bool hadKey = job_.wrappedFileKey.has_value();
    if (hadKey)
        co_await settleOldContent();
    job_.uploadId.reset();
    job_.wrappedFileKey.reset();
    job_.sha256.reset();
    job_.plainSize.reset();
    job_.blobId.reset();
    job_.sourceStat = stat;
    if (hadKey)
        save();
}

// Once there is a key, the old content may have become a file, or a version, whose answer was lost. The new
// one is then based on that; were it not, this device would be in conflict with itself.
asio::awaitable<void> UploadRunner::settleOldContent() {
    if (job_.uploadId)
        co_await endSession(*job_.uploadId);
    try {
        const auto file = co_await context_.api->file(job_.fileId.value_or(job_.clientFileId));
        if (isOwn(file))
            update(file);
    } catch (const APIError& error) {
        if (!error.is<APIError::NotFound>())
            throw;
    }
}

// One that is over already, or that the service does not let go of, is left to it.
asio::awaitable<void> UploadRunner::endSession(std::string uploadId) {
    try {
        co_await context_.api->abortUpload(std::move(uploadId));
    } catch (const APIError& error) {
        if (error.isRetryable() || error.is<APIError::Cancelled>())
            throw;
    }
}

// Of several uploads of one content the first sends it; the others then find it at the service. A session
// that ends under way is begun anew, once.
asio::awaitable<RemoteFile> UploadRunner::store() {
    const auto turn = co_await uploads_.turns.take(*job_.blobId);
    try {
        co_return co_await storeOnce();
    } catch (const APIError& error) {
        if (!error.is<APIError::Expired>())
            throw;
    }
    forgetSession();
    co_return co_await storeOnce();
}

asio::awaitable<RemoteFile> UploadRunner::storeOnce() {
    auto plan = co_await resumeSession();
    if (!plan)
        plan = co_await beginSession();
    if (!plan) // the service has the blob
        co_return co_await registerFile();
    co_return co_await sendAndComplete(std::move(*plan));
}

asio::awaitable<std::optional<PartPlan>> UploadRunner::resumeSession() {
    if (!job_.uploadId || !job_.wrappedFileKey)
        co_return std::nullopt;
    try {
        wrappedKey_ = *job_.wrappedFileKey;
        uploadId_ = *job_.uploadId;
        fileKey_ = masterKey_->unwrapFileKey(wrappedKey_);
        co_return PartPlan::resumed(co_await sessionParts(), chunkCount());
    } catch (const APIError& error) {
        if (!error.is<APIError::Expired>() && !error.is<APIError::Decoding>())
            throw;
    }
    forgetSession(); // it is over, or none of this content's
    co_return std::nullopt;
}

void UploadRunner::forgetSession() {
    uploadId_.clear();
    job_.uploadId.reset();
    job_.wrappedFileKey.reset();
    save();
}

// A session that the service does not know any more has expired.
asio::awaitable<std::vector<UploadPart>> UploadRunner::sessionParts() {
    try {
        co_return (co_await context_.api->uploadStatus(uploadId_)).parts;
    } catch (const APIError& error) {
        if (error.is<APIError::NotFound>())
            throw APIError(APIError::Expired{});
        throw;
    }
}

// The key is stored before anything is sealed with it: a run that follows seals the same content with it, or
// none.
asio::awaitable<std::optional<PartPlan>> UploadRunner::beginSession() {
    auto answer = co_await context_.api->createUpload({*job_.blobId, encryptedSize(), chunkCount()});
    if (answer.status == "exists") {
        auto key = co_await knownKey(context_, *masterKey_, job_, answer.wrappedFileKey);
        wrappedKey_ = std::move(key.wrapped);
        job_.wrappedFileKey = wrappedKey_;
        fileKey_ = std::move(key.key);
        save();
        co_return std::nullopt;
    }
    if (!answer.uploadId)
        throw TransferQueue::PermanentFailure("upload id missing");
    uploadId_ = *answer.uploadId;
    fileKey_ = ChunkCrypto::generateFileKey();
    wrappedKey_ = masterKey_->wrapFileKey(fileKey_);
    job_.uploadId = uploadId_;
    job_.wrappedFileKey = wrappedKey_;
    save();
    if (!answer.parts)
        answer.parts = co_await sessionParts();
    co_return PartPlan(std::move(*answer.parts), chunkCount());
}

asio::awaitable<RemoteFile> UploadRunner::sendAndComplete(PartPlan plan) {
    for (int round = 0; round < mostRounds; ++round) {
        co_await sendMissing(plan);
        plan.update(co_await sessionParts());
        if (!plan.missing().empty())
            continue;
        try {
            co_return co_await registerFile();
        } catch (const APIError& error) {
            const auto* missing = error.as<APIError::PartsMissing>();
            if (missing == nullptr)
                throw;
            plan.markRefused(missing->parts);
        }
    }
    throw APIError(APIError::Transport{"upload did not converge", true});
}

// Two lanes: while one part is on the wire, the next is read and sealed.
asio::awaitable<void> UploadRunner::sendMissing(PartPlan& plan) {
    auto parts = plan.missing();
    if (parts.empty())
        co_return;
    SendState state{plan, std::move(parts), 0, content_->stat().size, false};
    for (const auto& part : state.parts)
        state.progress -= static_cast<std::int64_t>(content_->sizeOf(part.index));
    if (state.parts.size() == 1)
        co_await sendLane(state);
    else
        co_await both(sendLane(state), sendLane(state));
    co_await offload([this] {
        content_->requireUnchanged();
        return true;
    });
}

asio::awaitable<void> UploadRunner::sendLane(SendState& state) {
    const auto size = content_->stat().size;
    KRCrypto::Bytes buffer(static_cast<std::size_t>(std::min(context_.chunkSize, size)) +
                           KRCrypto::gcmTagSize);
    while (state.next < state.parts.size() && !state.urlsExpired) {
        const auto part = state.parts[state.next++];
        const auto sealed = co_await offload([&] { return content_->sealed(part.index, fileKey_, buffer); });
        try {
            co_await context_.transport->put(part.url, sealed);
        } catch (const std::exception& error) {
            const auto* refusal = apiError(error);
            if (refusal == nullptr || !refusal->is<APIError::Forbidden>())
                throw;
            state.urlsExpired = true; // the next round fetches new ones
            co_return;
        }
        state.plan.markSent(part.index);
        state.progress += static_cast<std::int64_t>(content_->sizeOf(part.index));
        run_.setProgress(state.progress, size);
    }
}

asio::awaitable<RemoteFile> UploadRunner::registerFile() {
    for (int conflicts = 0;;) {
        std::optional<APIError> refusal;
        try {
            co_return co_await registerOnce();
        } catch (const APIError& error) {
            refusal = error;
        }
        if (const auto* missing = refusal->as<APIError::FolderMissing>())
            folderMissing(*missing);
        if (const auto* conflict = refusal->as<APIError::VersionConflict>()) {
            if (isOwn(conflict->file))
                co_return *conflict->file;
            if (++conflicts == mostConflicts)
                throw APIError(*refusal);
            if (!becomeUpdate(conflict->file))
                co_await becomeConflictCopy();
        } else if (refusal->is<APIError::NameConflict>() && !job_.fileId &&
                   job_.nameAttempt < mostNameAttempts) {
            ++job_.nameAttempt;
            save();
        } else {
            throw APIError(*refusal);
        }
    }
}

// With an upload session, completing it makes the record.
asio::awaitable<RemoteFile> UploadRunner::registerOnce() {
    const auto fileName = name();
    const KRCrypto::FileMeta meta(
        fileName, job_.mime.value_or("application/octet-stream"), content_->stat().size, content_->sha256(),
        KRJSON::formatDate(job_.mtime.value_or(dateSince1970(content_->stat().mtime))));
    const auto newId = job_.fileId ? std::nullopt : std::optional(job_.clientFileId);
    if (!uploadId_.empty()) {
        CompleteUploadRequest request{job_.folderId,
                                      newId,
                                      job_.fileId,
                                      job_.fileId ? job_.baseVersion : std::nullopt,
                                      masterKey_->sealMeta(meta),
                                      masterKey_->nameBlindIndex(fileName),
                                      wrappedKey_};
        co_return co_await context_.api->completeUpload(uploadId_, std::move(request));
    }
    CreateFileRequest request{newId,
                              job_.folderId,
                              masterKey_->sealMeta(meta),
                              masterKey_->nameBlindIndex(fileName),
                              *job_.blobId,
                              wrappedKey_,
                              chunkCount(),
                              encryptedSize(),
                              job_.fileId,
                              job_.fileId ? job_.baseVersion : std::nullopt};
    co_return co_await context_.api->createFile(std::move(request));
}

// An answer that was lost: the version that is in the way is this upload's own.
bool UploadRunner::isOwn(const std::optional<RemoteFile>& file) const {
    return file && file->blobId == job_.blobId && file->wrappedFileKey == job_.wrappedFileKey;
}

// The answer to an earlier creation was lost, and the source was changed since: what it made is updated.
bool UploadRunner::becomeUpdate(const std::optional<RemoteFile>& file) {
    if (job_.fileId || !file || file->id != job_.clientFileId)
        return false;
    update(*file);
    if (file->version != 1)
        return false; // another device has changed it since
    save();
    return true;
}

void UploadRunner::update(const RemoteFile& file) {
    job_.fileId = file.id;
    job_.baseVersion = file.version;
}

// Nothing of the local change is lost: it becomes a file beside the other device's version.
asio::awaitable<void> UploadRunner::becomeConflictCopy() {
    if (!job_.fileId)
        throw APIError(APIError::VersionConflict{});
    const auto device = co_await context_.deviceName();
    job_.originalName = job_.originalName.value_or(job_.name);
    job_.name = FileNames::conflicted(job_.name, device, LocalCalendar::dayKey(context_.clock->now()));
    job_.isConflictCopy = true;
    job_.nameAttempt = 0;
    if (job_.fileId == job_.clientFileId)
        job_.clientFileId = newUUID();
    job_.fileId.reset();
    job_.baseVersion.reset();
    save();
}

std::string UploadRunner::name() const {
    if (job_.nameAttempt == 0)
        return job_.name;
    return job_.isConflictCopy ? FileNames::furtherConflicted(job_.name, job_.nameAttempt + 1)
                               : FileNames::numbered(job_.name, job_.nameAttempt);
}

void UploadRunner::folderMissing(const APIError::FolderMissing& missing) {
    context_.index->markDeleted(missing.folderId.value_or(job_.folderId), context_.clock->now());
    const std::string state = stateOf(missing);
    if (job_.origin.as<TransferOrigin::Sync>() != nullptr)
        throw TransferQueue::DropReason("Skipped: its cloud folder " + state + "; it will be re-synced");
    if (job_.origin.as<TransferOrigin::Note>() != nullptr)
        throw TransferQueue::DropReason("Skipped: its cloud folder " + state + "; it will be saved again");
    throw TransferQueue::PermanentFailure("Not uploaded: the folder it was going into " + state +
                                          ". Discard it, or drag the file into an existing folder.");
}

// A file is complete without its thumbnail, so what goes wrong here is logged and the upload succeeds.
asio::awaitable<void> UploadRunner::addThumbnail(const RemoteFile& file) {
    if (!job_.mime.value_or("").starts_with("image/") || content_->stat().size > largestPicture)
        co_return;
    try {
        const auto sealed = co_await offload([this] {
            const auto picture = makeThumbnail(job_.sourcePath);
            content_->requireUnchanged();
            return ChunkCrypto::sealThumbnail(fileKey_, KRCrypto::asBytes(picture));
        });
        if (sealed.size() > largestThumbnail)
            co_return;
        co_await context_.api->uploadThumbnail(file.id, sealed);
        context_.index->setHasThumbnail(file.id, true);
    } catch (const std::exception& error) {
        Log::warning("transfer", std::string("no thumbnail: ") + error.what());
    }
}

std::int64_t UploadRunner::chunkCount() const {
    return ChunkCrypto::chunkCount(content_->stat().size, context_.chunkSize);
}

std::int64_t UploadRunner::encryptedSize() const {
    return ChunkCrypto::encryptedSize(content_->stat().size, context_.chunkSize);
}

} // namespace Korvane
