#include "KorvaneCore/sync/RootReconciler.hpp"

#include "KorvaneCore/jobs/FileNames.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/PartialFile.hpp"
#include "KorvaneCore/queue/TransferJob.hpp"
#include "KorvaneCore/storage/SQLiteError.hpp"
#include "KorvaneCore/sync/RelativePath.hpp"
#include "KorvaneCore/sync/RootRound.hpp"

#include <algorithm>
#include <utility>

namespace Korvane {

namespace {

/// Of an origin that is known to be a root.
std::string pathIn(const std::optional<TransferOrigin>& origin) {
    const auto* sync = origin ? origin->as<TransferOrigin::Sync>() : nullptr;
    return sync != nullptr ? sync->relPath : "";
}

std::optional<TransferOrigin> originOf(const TransferOutcome& outcome) {
    if (const auto* failed = outcome.as<TransferOutcome::Failed>())
        return failed->origin;
    if (const auto* dropped = outcome.as<TransferOutcome::Dropped>())
        return dropped->origin;
    if (const auto* upload = outcome.as<TransferOutcome::Uploaded>())
        return upload->job.origin;
    return outcome.as<TransferOutcome::Downloaded>()->job.origin;
}

asio::awaitable<std::optional<LocalStat>> statOf(std::string path) {
    co_return co_await offload([path = std::move(path)] { return localStat(path); });
}

/// False also when the system does not tell.
asio::awaitable<bool> isGone(std::string path) {
    co_return co_await offload([path = std::move(path)] {
        try {
            return !localStat(path);
        } catch (const FileError&) {
            return false;
        }
    });
}

} // namespace

RootLedger RootReconciler::ledgerOf(SyncRoot root) const {
    return {parts_.context.index, parts_.status, std::move(root)};
}

std::optional<RootLedger> RootReconciler::ledgerOf(const std::optional<TransferOrigin>& origin) const {
    const auto* sync = origin ? origin->as<TransferOrigin::Sync>() : nullptr;
    if (sync == nullptr)
        return std::nullopt;
    auto root = SyncRoots::find(*parts_.context.index, sync->rootId);
    return root ? std::optional(ledgerOf(*std::move(root))) : std::nullopt;
}

asio::awaitable<void> RootReconciler::reconcile(SyncRoot root) {
    const auto ledger = ledgerOf(std::move(root));
    if (!reconciled_.contains(ledger.root().id)) {
        co_await takeUpUnheardOf(ledger);
        reconciled_.insert(ledger.root().id);
    }
    RootRound round(parts_.context, *parts_.queue, ledger);
    if (!co_await round.run())
        throw Incomplete();
}

asio::awaitable<std::optional<std::string>> RootReconciler::settled(TransferOutcome outcome) {
    const auto origin = originOf(outcome);
    const auto ledger = ledgerOf(origin);
    if (!ledger)
        co_return std::nullopt;
    bool again = true; // also when the outcome cannot be taken up now: the next reconcile finds what it was
    try {
        again = co_await takeUp(*ledger, outcome);
    } catch (const SQLiteError& error) {
        Log::warning("sync", error.what());
    } catch (const FileError& error) {
        Log::warning("sync", error.code().message());
    }
    co_return again ? std::optional(ledger->root().id) : std::nullopt;
}

asio::awaitable<bool> RootReconciler::takeUp(const RootLedger& ledger, const TransferOutcome& outcome) {
    if (const auto* failure = outcome.as<TransferOutcome::Failed>())
        co_return co_await failed(ledger, *failure);
    if (const auto* upload = outcome.as<TransferOutcome::Uploaded>())
        co_return co_await uploaded(ledger, upload->job, upload->file.id, upload->file.version);
    if (const auto* download = outcome.as<TransferOutcome::Downloaded>())
        co_return co_await downloaded(ledger, *download);
    ledger.mark(pathIn(originOf(outcome)), PathStatus::queued);
    co_return true;
}

// A file that came and went before it was sent has failed at nothing. One that was trashed elsewhere while it
// waited begins anew: true.
asio::awaitable<bool> RootReconciler::failed(const RootLedger& ledger,
                                             const TransferOutcome::Failed& failure) {
    const auto relPath = pathIn(failure.origin);
    const auto record = parts_.context.index->transfer(failure.id);
    const auto read = record ? readableJob(*record) : std::nullopt;
    const auto* upload = read ? std::get_if<UploadJob>(&*read) : nullptr;
    if (upload != nullptr && co_await isGone(ledger.absolute(relPath))) {
        co_await parts_.queue->cancel(failure.id);
        ledger.unmark(relPath, false);
        co_return false;
    }
    if (upload != nullptr && upload->fileId && failure.apiError &&
        failure.apiError->is<APIError::NotFound>()) {
        co_await parts_.queue->cancel(failure.id);
        parts_.context.index->markDeleted(*upload->fileId, parts_.context.clock->now());
        ledger.removeBase(relPath, false);
        ledger.mark(relPath, PathStatus::queued);
        co_return true;
    }
    ledger.mark(relPath, PathStatus::error);
    co_return false;
}

// True when the file is another by now: of a change during the upload the event has passed, as the queue had
// the file then.
asio::awaitable<bool> RootReconciler::uploaded(const RootLedger& ledger, const UploadJob& job,
                                               std::string itemId, std::int64_t version) {
    if (!job.sourceStat)
        co_return true;
    auto relPath = pathIn(job.origin);
    auto status = PathStatus::synced;
    if (job.isConflictCopy) {
        relPath = co_await keepConflictCopy(ledger, job);
        status = PathStatus::conflict;
    } else if (const auto moved = ledger.pathOf(itemId)) {
        relPath = *moved; // with its folder, while it was sent
    } else if (const auto folder = ledger.pathOf(job.folderId)) {
        relPath = RelativePath::child(*folder, RelativePath::name(relPath)); // likewise
    }
    ledger.setBase({relPath, *job.sourceStat}, itemId, version, job.sha256);
    ledger.mark(relPath, status, itemId);
    const auto now = co_await statOf(ledger.absolute(relPath));
    co_return now.has_value() && now != job.sourceStat;
}

// A conflict copy is another file than the one it was made from, here as in the account; the version of the
// other device comes to the place it leaves. Gives the path it has then.
asio::awaitable<std::string> RootReconciler::keepConflictCopy(const RootLedger& ledger,
                                                              const UploadJob& job) {
    const auto relPath = pathIn(job.origin);
    const auto from = ledger.absolute(relPath);
    const auto renamed = co_await renameConflictCopy(ledger, job);
    if (!renamed)
        co_return relPath;
    parts_.ownWrites->registerRemoval(from);
    if (job.sourceStat)
        parts_.ownWrites->registerWrite(ledger.absolute(*renamed), *job.sourceStat);
    const auto base = ledger.base();
    const auto before = base.find(relPath);
    ledger.unmark(relPath, false);
    if (before == base.end())
        co_return *renamed;
    DownloadJob download;
    download.fileId = before->second.itemId;
    download.destinationPath = from;
    download.origin = job.origin;
    ledger.mark(relPath, PathStatus::queued);
    const auto item = parts_.context.index->item(download.fileId);
    co_await parts_.queue->enqueueDownload(std::move(download), RelativePath::name(relPath),
                                           item ? item->size : 0);
    ledger.removeBase(relPath, false); // last: until then this is done once more after a crash
    co_return *renamed;
}

// Where its name is taken here, under a further one. None when it keeps the old one.
asio::awaitable<std::optional<std::string>> RootReconciler::renameConflictCopy(const RootLedger& ledger,
                                                                               const UploadJob& job) {
    const auto relPath = pathIn(job.origin);
    const auto from = ledger.absolute(relPath);
    for (std::int64_t n = 1;; ++n) {
        const auto name = n == 1 ? job.name : FileNames::furtherConflicted(job.name, n);
        auto renamed = RelativePath::child(RelativePath::parent(relPath), name);
        const auto to = ledger.absolute(renamed);
        const auto error = co_await offload([from, to] { return renameToFreeName(from, to); });
        if (error == std::errc::file_exists && co_await statOf(to) != job.sourceStat)
            continue;
        // There already, when a process ended right after it had renamed it; and gone when the user was
        // quicker.
        if (!error || error == std::errc::file_exists || error == std::errc::no_such_file_or_directory)
            co_return renamed;
        Log::warning("sync", "a conflict copy keeps its local name: " + error.message());
        co_return std::nullopt;
    }
}

// True when what lies there now is not what was fetched, or something was moved aside for it.
asio::awaitable<bool> RootReconciler::downloaded(const RootLedger& ledger,
                                                 const TransferOutcome::Downloaded& download) {
    const auto relPath = pathIn(download.job.origin);
    const auto item = parts_.context.index->item(download.file.id);
    const bool isKnown = item && item->version == download.file.version;
    ledger.setBase({relPath, download.placed}, download.file.id, download.file.version,
                   isKnown ? item->sha256 : std::nullopt);
    ledger.mark(relPath, PathStatus::synced, download.file.id);
    const auto now = co_await statOf(ledger.absolute(relPath));
    co_return now != download.placed || download.movedAside.has_value();
}

// An upload may have ended, and this process with it, before its outcome was heard of. It is told by its
// file: that lies where it belongs, with the content sent, and the base does not know it.
asio::awaitable<void> RootReconciler::takeUpUnheardOf(const RootLedger& ledger) {
    auto& index = *parts_.context.index;
    std::map<std::string, std::int64_t> known; // versions, by item
    std::map<std::string, std::string> folders{{"", ledger.root().folderId}};
    for (const auto& [relPath, entry] : ledger.base()) {
        known[entry.itemId] = entry.version;
        if (entry.isFolder)
            folders[relPath] = entry.itemId;
    }
    for (const auto& record : index.transfers({{TransferRecord::State::done}}, -1)) {
        const auto read = readableJob(record);
        const auto* job = read ? std::get_if<UploadJob>(&*read) : nullptr;
        const auto* origin = job != nullptr ? job->origin.as<TransferOrigin::Sync>() : nullptr;
        if (origin == nullptr || origin->rootId != ledger.root().id)
            continue;
        const auto item = index.item(job->fileId.value_or(job->clientFileId));
        const auto folder = folders.find(RelativePath::parent(origin->relPath));
        const auto version = item ? known.find(item->id) : known.end();
        if (item && !item->deletedAt && item->sha256 == job->sha256 && folder != folders.end() &&
            folder->second == item->parentId && (version == known.end() || version->second < item->version))
            co_await uploaded(ledger, *job, item->id, item->version);
    }
}

} // namespace Korvane
