#include "KorvaneCore/jobs/FileRegistration.hpp"

#include "KorvaneCore/jobs/FileNames.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/LocalCalendar.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"
#include "KorvaneCore/storage/SQLValue.hpp"

#include <utility>

namespace Korvane {

namespace {

constexpr std::int64_t mostNameAttempts = 100;
constexpr int mostConflicts = 10;

const char* stateOf(const APIError::FolderMissing& missing) {
    return missing.trashed ? "is in the Trash" : "no longer exists";
}

} // namespace

asio::awaitable<RemoteFile> FileRegistration::carryOut() {
    for (int conflicts = 0;;) {
        std::optional<APIError> refusal;
        try {
            co_return co_await carryOutOnce();
        } catch (const APIError& error) {
            refusal = error;
        }
        if (const auto* missing = refusal->as<APIError::FolderMissing>())
            folderMissing(*missing);
        if (const auto* conflict = refusal->as<APIError::VersionConflict>()) {
            if (work_.isOwn(conflict->file))
                co_return *conflict->file;
            if (++conflicts == mostConflicts)
                throw APIError(*refusal);
            co_await resolve(conflict->file);
        } else if (refusal->is<APIError::NameConflict>() && !work_.job.fileId &&
                   work_.job.nameAttempt < mostNameAttempts) {
            ++work_.job.nameAttempt;
            work_.save();
        } else {
            throw APIError(*refusal);
        }
    }
}

// With an upload session, completing it makes the record.
asio::awaitable<RemoteFile> FileRegistration::carryOutOnce() {
    const auto fileName = name();
    const KRCrypto::FileMeta meta(
        fileName, work_.job.mime.value_or("application/octet-stream"), work_.content->stat().size,
        work_.content->sha256(),
        KRJSON::formatDate(work_.job.mtime.value_or(dateSince1970(work_.content->stat().mtime))));
    const auto newId = work_.job.fileId ? std::nullopt : std::optional(work_.job.clientFileId);
    if (!work_.uploadId.empty()) {
        CompleteUploadRequest request{work_.job.folderId,
                                      newId,
                                      work_.job.fileId,
                                      work_.job.fileId ? work_.job.baseVersion : std::nullopt,
                                      work_.masterKey->sealMeta(meta),
                                      work_.masterKey->nameBlindIndex(fileName),
                                      work_.wrappedKey};
        co_return co_await work_.context.api->completeUpload(work_.uploadId, std::move(request));
    }
    CreateFileRequest request{newId,
                              work_.job.folderId,
                              work_.masterKey->sealMeta(meta),
                              work_.masterKey->nameBlindIndex(fileName),
                              work_.blobId,
                              work_.wrappedKey,
                              work_.chunkCount(),
                              work_.encryptedSize(),
                              work_.job.fileId,
                              work_.job.fileId ? work_.job.baseVersion : std::nullopt};
    co_return co_await work_.context.api->createFile(std::move(request));
}

// In the way may be what an earlier run has created with another content, its answer lost: as long as nobody
// else has changed it, that is updated.
asio::awaitable<void> FileRegistration::resolve(std::optional<RemoteFile> other) {
    const bool madeHere = !work_.job.fileId && other && other->id == work_.job.clientFileId;
    if (!madeHere || other->version != 1)
        co_return co_await becomeConflictCopy();
    work_.baseOn(*other);
    work_.save();
}

// Nothing of the local change is lost: it becomes a file beside the other device's version.
asio::awaitable<void> FileRegistration::becomeConflictCopy() {
    auto& job = work_.job;
    const auto device = co_await work_.context.deviceName();
    job.originalName = job.originalName.value_or(job.name);
    job.name =
        FileNames::conflicted(*job.originalName, device, LocalCalendar::dayKey(work_.context.clock->now()));
    job.isConflictCopy = true;
    job.nameAttempt = 0;
    if (job.fileId.value_or(job.clientFileId) == job.clientFileId)
        job.clientFileId = newUUID(); // the old one is taken
    job.fileId.reset();
    job.baseVersion.reset();
    work_.save();
}

std::string FileRegistration::name() const {
    if (work_.job.nameAttempt == 0)
        return work_.job.name;
    return work_.job.isConflictCopy ? FileNames::furtherConflicted(work_.job.name, work_.job.nameAttempt + 1)
                                    : FileNames::numbered(work_.job.name, work_.job.nameAttempt);
}

void FileRegistration::folderMissing(const APIError::FolderMissing& missing) {
    work_.context.index->markDeleted(missing.folderId.value_or(work_.job.folderId),
                                     work_.context.clock->now());
    const std::string state = stateOf(missing);
    if (work_.job.origin.as<TransferOrigin::Sync>() != nullptr)
        throw TransferQueue::DropReason("Skipped: its cloud folder " + state + "; it will be re-synced");
    if (work_.job.origin.as<TransferOrigin::Note>() != nullptr)
        throw TransferQueue::DropReason("Skipped: its cloud folder " + state + "; it will be saved again");
    throw TransferQueue::PermanentFailure("Not uploaded: the folder it was going into " + state +
                                          ". Discard it, or drag the file into an existing folder.");
}

} // namespace Korvane
