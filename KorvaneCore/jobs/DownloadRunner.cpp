#include "KorvaneCore/jobs/DownloadRunner.hpp"

#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/jobs/BlobFetch.hpp"
#include "KorvaneCore/jobs/Placement.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>
#include <vector>

namespace Korvane {

using KRCrypto::KRCryptoError;
namespace ChunkCrypto = KRCrypto::ChunkCrypto;

namespace {

constexpr int mostLooks = 5;
constexpr std::string_view receivedBlobs = "drop_"; // their ids are not made from the content

/// Those that were missing, as they are now.
std::vector<std::pair<std::filesystem::path, LocalStat>> makeFolders(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> missing;
    for (auto path = folder; !path.empty() && !localStat(path); path = path.parent_path())
        missing.push_back(path);
    createDirectories(folder);
    std::vector<std::pair<std::filesystem::path, LocalStat>> made;
    for (const auto& path : missing)
        if (const auto stat = localStat(path))
            made.emplace_back(path, *stat);
    return made;
}

/// It would only fill the disk: the next run begins anew.
void removeUnfinished(const std::filesystem::path& file) {
    std::error_code left;
    std::filesystem::remove(file, left);
    if (left)
        Log::warning("transfer", "an unfinished download could not be removed: " + left.message());
}

} // namespace

DownloadRunner::DownloadRunner(const JobContext& context, TransferRun& run, DownloadJob job)
    : context_(context),
      run_(run),
      job_(std::move(job)),
      destination_(job_.destinationPath),
      ranBefore_(job_.tempPath.has_value()) {}

asio::awaitable<TransferOutcome::Downloaded> DownloadRunner::download() {
    co_await findVersion();
    auto partial = co_await fetch();
    // Before the rename as well as after it: its event may be here before this coroutine is.
    const auto fetched = co_await offload([path = partial.path()] { return localStat(path); });
    if (!fetched) // before anything is moved for it
        throw TransferQueue::PermanentFailure(Placement::failure(ENOENT));
    co_await run_.reportOwnWrite(destination_, *fetched);
    auto movedAside = co_await place(std::move(partial));
    const auto placed = co_await offload([this] { return localStat(destination_); });
    if (placed == fetched) // else it is the user's already
        co_await run_.reportOwnWrite(destination_, *placed);
    co_return TransferOutcome::Downloaded{job_, file_, std::move(movedAside), *fetched};
}

asio::awaitable<void> DownloadRunner::look() {
    try {
        file_ = co_await context_.api->file(job_.fileId);
        if (file_.deletedAt)
            throw TransferQueue::DropReason("File was deleted");
        info_ = co_await context_.api->downloadInfo(job_.fileId);
    } catch (const APIError& error) {
        if (error.is<APIError::NotFound>())
            throw TransferQueue::DropReason("File no longer exists");
        throw;
    }
}

// Record and storage URL come in two answers; a new version may come between. Key and hash are those of the
// version that is fetched.
asio::awaitable<void> DownloadRunner::findVersion() {
    for (int looks = 0;; ++looks) {
        co_await look();
        if (info_.version.value_or(file_.version) == file_.version &&
            info_.blobId.value_or(file_.blobId) == file_.blobId)
            break;
        if (looks == mostLooks)
            throw APIError(APIError::Transport{"the file changes faster than it can be fetched", true});
    }
    const auto masterKey = co_await context_.masterKey();
    const auto meta = masterKey->openMeta(file_.metaEnc);
    if (meta.file() == nullptr)
        throw KRCryptoError(KRCryptoError::InvalidMeta{});
    meta_ = *meta.file();
    fileKey_ = masterKey->unwrapFileKey(file_.wrappedFileKey);
    checkRecord();
    if (file_.nameBlindIndex && masterKey->nameBlindIndex(meta_.name) != file_.nameBlindIndex)
        Log::warning("transfer",
                     "a file's name does not match its index; another client may fold names otherwise");
    if (!file_.blobId.starts_with(receivedBlobs) &&
        masterKey->blobId(KRCrypto::Hex::decode(meta_.sha256)) != file_.blobId)
        Log::warning("transfer", "a file's content hash does not match its blob");
}

// Before a byte is written: sizes that do not belong together are no file of this account's clients.
void DownloadRunner::checkRecord() const {
    const auto count = ChunkCrypto::chunkCount(meta_.size, context_.chunkSize);
    const auto size = ChunkCrypto::encryptedSize(meta_.size, context_.chunkSize);
    if (file_.chunkCount != count || file_.encryptedSize != size || info_.chunkCount != count ||
        info_.encryptedSize != size)
        throw KRCryptoError(KRCryptoError::SizeMismatch{});
}

std::filesystem::path DownloadRunner::temporaryPath() const {
    return destination_.parent_path() / (".korvane-" + run_.record().id + ".partial");
}

asio::awaitable<PartialFile> DownloadRunner::fetch() {
    const auto previous = std::exchange(job_.tempPath, temporaryPath().string());
    job_.version = file_.version;
    run_.save(job_);
    for (const auto& folder : co_await offload([this] { return makeFolders(destination_.parent_path()); }))
        co_await run_.reportOwnWrite(folder.first, folder.second);
    auto partial = co_await offload([this, previous] {
        std::error_code gone;
        if (previous)
            std::filesystem::remove(*previous, gone); // of an earlier run, replaced by this one's
        return PartialFile(*job_.tempPath);
    });
    BlobFetch blob(context_.transport, {fileKey_, file_.chunkCount, file_.encryptedSize, context_.chunkSize},
                   info_.url, [this] { return freshURL(); });
    std::exception_ptr failure;
    try {
        co_await blob.into(partial, meta_,
                           [this](std::int64_t plainBytes) { run_.setProgress(plainBytes, meta_.size); });
        co_return partial;
    } catch (...) {
        failure = std::current_exception();
    }
    co_await offload([&partial] { removeUnfinished(partial.path()); });
    std::rethrow_exception(failure);
}

// Of another version it is no use to this run.
asio::awaitable<std::string> DownloadRunner::freshURL() {
    auto fresh = co_await context_.api->downloadInfo(job_.fileId);
    if (fresh.version.value_or(file_.version) != file_.version ||
        fresh.blobId.value_or(file_.blobId) != file_.blobId)
        throw APIError(APIError::Transport{"the file changed while it was fetched", true});
    co_return std::move(fresh.url);
}

asio::awaitable<std::optional<std::filesystem::path>> DownloadRunner::place(PartialFile partial) {
    Placement::MustBeKept mustBeKept;
    if (job_.collision == DownloadJob::Collision::conflictCopy)
        mustBeKept = [this](const std::filesystem::path& path, const LocalStat& present) {
            return job_.guardLocal != present && !isPlacedAlready(path, present);
        };
    co_return co_await offload([this, mustBeKept, kept = std::make_shared<PartialFile>(std::move(partial))] {
        return Placement(*kept, destination_, mustBeKept).carryOut();
    });
}

// By an earlier run, which ended before that was stored. Its file is no change of the user's.
bool DownloadRunner::isPlacedAlready(const std::filesystem::path& path, const LocalStat& present) const {
    if (!ranBefore_ || present.isDirectory || present.size != meta_.size)
        return false;
    const auto hash = ChunkCrypto::sha256OfFile(path).first;
    return std::ranges::equal(hash, KRCrypto::Hex::decode(meta_.sha256)) && localStat(path) == present;
}

} // namespace Korvane
