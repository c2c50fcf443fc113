#include "KorvaneCore/sync/RootRound.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/jobs/FileNames.hpp"
#include "KorvaneCore/jobs/SourceContent.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneCore/sync/FolderNamed.hpp"
#include "KorvaneCore/sync/RelativePath.hpp"

#include <algorithm>
#include <set>

namespace Korvane {

using KRCrypto::KRCryptoError;

namespace {

constexpr auto category = "sync";
constexpr int mostNames = 100;
constexpr std::chrono::seconds coarsestTick{2}; ///< of the clocks that date files: FAT's

/// It waits for something else; the next round comes back to it.
struct Later {};

} // namespace

RootRound::RootRound(const JobContext& context, TransferQueue& queue, const RootLedger& ledger)
    : context_(context), queue_(queue), ledger_(ledger), queued_(ledger.root().id) {}

asio::awaitable<bool> RootRound::run() {
    masterKey_ = co_await context_.masterKey();
    if (!co_await hasFolder())
        co_return false;
    // Before the base: what ends in between is held, and not begun again with what it was based on. Of what
    // has ended by now the base knows once the outcome has been handled; that may have queued something in
    // turn.
    for (int look = 0; look < 2; ++look) {
        co_await offload([&] { queued_.look(*context_.index); });
        co_await queue_.delivered();
    }
    const auto base = co_await offload([&] { return baseOfLiveFolders(); });
    const auto states = co_await offload([&] { return ledger_.statuses(); });
    const auto lookedAt = std::chrono::system_clock::now() - coarsestTick;
    const auto scan = co_await offload(
        [path = ledger_.root().path] { return scanFolder(path, SharedContainer::location()); });
    const auto plan = co_await offload([&] { return planSync(scan, base, ledger_.lookedAt()); });
    folders_[""] = ledger_.root().folderId;
    for (const auto& [relPath, entry] : base)
        if (entry.isFolder)
            folders_[relPath] = entry.itemId;
    isComplete_ = scan.isComplete;
    co_await giveUpGone(scan);
    for (const auto& step : plan.steps)
        if (const auto* folder = std::get_if<SyncPlan::NewFolder>(&step))
            co_await attempt(folder->relPath, makeFolder(*folder));
        else if (const auto* moved = std::get_if<SyncPlan::Move>(&step))
            co_await attempt(moved->entry.relPath, move(*moved));
    co_await compareAll(plan.doubtful, lookedAt);
    for (const auto& file : plan.uploads)
        if (!queued_.hold(file.entry))
            co_await attempt(file.entry.relPath, send(file));
    co_await offload([&] {
        markSkipped(scan);
        tidyStates(states, scan, plan.unchanged);
    });
    co_return isComplete_;
}

// Without the folder it is mirrored to, nothing of the root can go anywhere; what becomes of it is for the
// user to say.
asio::awaitable<bool> RootRound::hasFolder() {
    const auto& id = ledger_.root().folderId;
    auto item = context_.index->item(id);
    if (!item || item->deletedAt) { // it may have come back with a folder above it
        try {
            context_.index->apply(co_await context_.api->folder(id), *masterKey_);
        } catch (const APIError& error) {
            if (!error.is<APIError::NotFound>())
                throw;
        }
        item = context_.index->item(id);
    }
    const bool isThere = item && !item->deletedAt;
    const bool isMarked = ledger_.status("") == PathStatus::error;
    if (!isThere && !isMarked) {
        Log::warning(category,
                     "the folder of the account that a root is mirrored to is gone or in the Trash");
        ledger_.mark("", PathStatus::error);
    } else if (isThere && isMarked) {
        ledger_.unmark("", false);
    }
    co_return isThere;
}

// Files of a folder that is gone, or in the Trash, have nowhere to go; it is made anew, and they with it.
RootLedger::Base RootRound::baseOfLiveFolders() const {
    auto base = ledger_.base();
    bool isCurrent = true;
    for (const auto& [relPath, entry] : base) {
        if (!entry.isFolder)
            continue;
        const auto item = context_.index->item(entry.itemId);
        if (item && !item->deletedAt)
            continue;
        ledger_.removeBase(relPath, true);
        isCurrent = false;
    }
    return isCurrent ? base : ledger_.base();
}

// What is as it was reconciled is synced, whatever went wrong with it before; but a conflict is for the user
// to end. What had a state before the scan and is gone has none.
void RootRound::tidyStates(const States& states, const LocalScan& scan,
                           const std::vector<std::string>& unchanged) const {
    std::set<std::string> present;
    for (const auto& skipped : scan.skipped)
        present.insert(skipped.relPath);
    std::vector<std::string> synced;
    for (const auto& relPath : unchanged) {
        const auto state = states.find(relPath);
        const bool stands = state != states.end() &&
                            (state->second == PathStatus::synced || state->second == PathStatus::conflict);
        if (!stands && !queued_.isActive(relPath) && !present.contains(relPath))
            synced.push_back(relPath);
    }
    ledger_.markAll(synced, PathStatus::synced);
    if (!scan.isComplete)
        return;
    for (const auto& entry : scan.entries)
        present.insert(entry.relPath);
    for (const auto& [relPath, state] : states)
        if (!present.contains(relPath) && !queued_.isActive(relPath))
            ledger_.unmark(relPath, false);
}

// Names are the user's own and stay out of the log; the status says which entries are meant.
void RootRound::markSkipped(const LocalScan& scan) {
    for (const auto& skipped : scan.skipped) {
        const auto status =
            skipped.why == LocalScan::Why::unreadable ? PathStatus::error : PathStatus::excluded;
        if (ledger_.status(skipped.relPath) == status)
            continue;
        if (skipped.why != LocalScan::Why::noise)
            Log::warning(category, "an entry is not synced: " + skipped.reason);
        ledger_.mark(skipped.relPath, status);
    }
}

// An upload that failed and whose file is gone has nothing left to do.
asio::awaitable<void> RootRound::giveUpGone(const LocalScan& scan) {
    if (!scan.isComplete)
        co_return;
    for (const auto& [relPath, failed] : queued_.failed()) {
        if (std::ranges::binary_search(scan.entries, relPath, {}, &LocalScan::Entry::relPath))
            continue;
        co_await queue_.cancel(failed.id);
        ledger_.unmark(relPath, false);
    }
}

asio::awaitable<void> RootRound::attempt(std::string relPath, asio::awaitable<void> work) {
    std::string reason;
    try {
        co_await std::move(work);
        co_return;
    } catch (const Later&) {
        isComplete_ = false;
        co_return;
    } catch (const FileError& error) {
        reason = error.code().message();
    } catch (const KRCryptoError& error) {
        reason = error.what();
    } catch (const std::exception& error) {
        const auto* refusal = apiError(error);
        if (refusal == nullptr || refusal->concernsAll())
            throw;
        reason = refusal->what();
    }
    isComplete_ = false;
    Log::warning(category, "an entry cannot be mirrored: " + reason);
    ledger_.mark(relPath, PathStatus::error);
}

const std::string& RootRound::parentId(const std::string& relPath) const {
    const auto found = folders_.find(RelativePath::parent(relPath));
    if (found == folders_.end())
        throw Later();
    return found->second;
}

bool RootRound::isOurs(const std::string& folderId) const {
    return std::ranges::any_of(folders_, [&](const auto& folder) { return folder.second == folderId; });
}

// Names are taken in the account that are free here: by another device's files, by what was removed here, or
// as they differ in case alone.
asio::awaitable<void> RootRound::makeFolder(SyncPlan::NewFolder entry) {
    const auto name = RelativePath::name(entry.relPath);
    const auto& parent = parentId(entry.relPath);
    std::optional<RemoteFolder> folder;
    for (int n = 0; !folder; ++n) {
        if (n > mostNames)
            throw APIError(APIError::NameConflict{});
        folder = co_await freeFolder(n == 0 ? name : FileNames::numberedFolder(name, n), parent);
    }
    context_.index->apply(*folder, *masterKey_);
    ledger_.setBase(entry, folder->id, 0, std::nullopt);
    folders_[entry.relPath] = folder->id;
    ledger_.mark(entry.relPath, PathStatus::synced, folder->id);
}

// None when something else has the name, be it another folder of the root.
asio::awaitable<std::optional<RemoteFolder>> RootRound::freeFolder(std::string name, std::string parentId) {
    std::optional<APIError> refusal;
    try {
        auto folder = co_await folderNamed(*context_.api, *masterKey_, name, parentId);
        co_return folder&& isOurs(folder->id) ? std::nullopt : std::move(folder);
    } catch (const APIError& error) {
        refusal = error;
    }
    if (const auto* missing = refusal->as<APIError::FolderMissing>()) {
        context_.index->markDeleted(missing->folderId.value_or(parentId), context_.clock->now());
        throw Later();
    }
    throw APIError(*refusal);
}

asio::awaitable<void> RootRound::move(SyncPlan::Move move) {
    const auto& to = move.entry.relPath;
    if (move.base.sha256 && !co_await hasContent(ledger_.absolute(to), move.entry.stat, *move.base.sha256)) {
        if (!queued_.hold(move.entry)) // an inode that was given out again, to a file of the same looks
            co_await send({move.entry, std::nullopt});
        co_return;
    }
    auto from = move.from;
    for (const auto& [before, after] : moved_)
        from = RelativePath::moved(from, before, after);
    const auto name = RelativePath::name(to);
    const auto& parent = parentId(to);
    move.base.relPath = from;
    for (int n = 0;; ++n) {
        if (n > mostNames)
            throw APIError(APIError::NameConflict{});
        const auto free = n == 0               ? name
                          : move.base.isFolder ? FileNames::numberedFolder(name, n)
                                               : FileNames::numbered(name, n);
        if (co_await rename(move.base, free, parent))
            break;
    }
    if (move.base.isFolder)
        co_await cancelBelow(from);
    ledger_.moveBase(from, to);
    ledger_.unmark(from, true);
    moved_.emplace_back(from, to);
    if (move.base.isFolder) {
        std::map<std::string, std::string> folders;
        for (const auto& [relPath, id] : folders_)
            folders[RelativePath::moved(relPath, from, to)] = id;
        folders_ = std::move(folders);
    }
    ledger_.mark(to, PathStatus::synced, move.base.itemId);
}

// What waits to be sent from a folder's old place would send what lies there by then, into the folder that
// has moved. It begins anew from its new place.
asio::awaitable<void> RootRound::cancelBelow(std::string folder) {
    using enum TransferRecord::State;
    const auto& rootId = ledger_.root().id;
    for (const auto& transfer : transfersOf(*context_.index, rootId, {pending, running, paused, failed})) {
        if (transfer.kind != TransferRecord::Kind::upload || !transfer.relPath.starts_with(folder + "/"))
            continue;
        co_await queue_.cancel(transfer.id);
        queued_.forget(transfer.relPath);
    }
}

// False when the name is taken.
asio::awaitable<bool> RootRound::rename(SyncPlan::BaseEntry base, std::string name, std::string parentId) {
    const auto blindIndex = masterKey_->nameBlindIndex(name);
    std::optional<APIError> refusal;
    try {
        if (base.isFolder) {
            const UpdateFolderRequest request{
                parentId, masterKey_->sealMeta(KRCrypto::FolderMeta(name)), blindIndex, {}};
            context_.index->apply(co_await context_.api->updateFolder(base.itemId, request), *masterKey_);
        } else {
            auto meta = co_await metaOf(base.itemId);
            meta.name = name;
            const UpdateFileRequest request{parentId, masterKey_->sealMeta(meta), blindIndex, {}};
            context_.index->apply(co_await context_.api->updateFile(base.itemId, request), *masterKey_);
        }
        co_return true;
    } catch (const APIError& error) {
        refusal = error;
    }
    if (refusal->is<APIError::NameConflict>())
        co_return false;
    const auto* missing = refusal->as<APIError::FolderMissing>();
    if (missing == nullptr && !refusal->is<APIError::NotFound>())
        throw APIError(*refusal);
    // What it becomes part of is gone, or it is itself: then it begins anew.
    const bool isParent = missing != nullptr && missing->folderId.value_or(parentId) == parentId;
    context_.index->markDeleted(isParent ? parentId : base.itemId, context_.clock->now());
    if (!isParent)
        ledger_.removeBase(base.relPath, base.isFolder);
    throw Later();
}

asio::awaitable<KRCrypto::FileMeta> RootRound::metaOf(std::string itemId) {
    const auto item = context_.index->item(itemId);
    const auto meta =
        masterKey_->openMeta(item ? item->metaEnc : (co_await context_.api->file(itemId)).metaEnc);
    if (meta.file() == nullptr)
        throw KRCryptoError(KRCryptoError::InvalidMeta{});
    co_return *meta.file();
}

// What waits or runs is looked at again once it has ended.
asio::awaitable<void> RootRound::compareAll(std::vector<SyncPlan::Upload> doubtful, Time lookedAt) {
    bool isWhole = true;
    for (const auto& file : doubtful) {
        isWhole = isWhole && !queued_.isActive(file.entry.relPath);
        if (!queued_.hold(file.entry))
            co_await attempt(file.entry.relPath, compare(file));
    }
    if (isWhole)
        ledger_.setLookedAt(lookedAt);
}

// Dated or written anew with the content it had: the base learns its new looks.
asio::awaitable<void> RootRound::compare(SyncPlan::Upload doubtful) {
    const auto& [entry, base] = doubtful;
    if (!base || !base->sha256 ||
        !co_await hasContent(ledger_.absolute(entry.relPath), entry.stat, *base->sha256))
        co_return co_await enqueue(std::move(doubtful));
    ledger_.setBase(entry, base->itemId, base->version, base->sha256);
    if (ledger_.status(entry.relPath) != PathStatus::conflict)
        ledger_.mark(entry.relPath, PathStatus::synced, base->itemId);
}

asio::awaitable<void> RootRound::send(SyncPlan::Upload file) {
    if (!co_await isInAccount(file))
        co_await enqueue(std::move(file));
}

// The account may have the file although the base does not know of it: the folder was synced before, or this
// process ended too early.
asio::awaitable<bool> RootRound::isInAccount(SyncPlan::Upload file) {
    const auto& [entry, base] = file;
    if (base)
        co_return false;
    const auto name = RelativePath::name(entry.relPath);
    const auto item = context_.index->child(parentId(entry.relPath), name);
    if (!item || item->isFolder || !item->sha256 || item->size != entry.stat.size || item->name != name ||
        !co_await hasContent(ledger_.absolute(entry.relPath), entry.stat, *item->sha256))
        co_return false;
    ledger_.setBase(entry, item->id, item->version, item->sha256);
    ledger_.mark(entry.relPath, PathStatus::synced, item->id);
    co_return true;
}

// One that cannot be read now is left to its upload, which says so.
asio::awaitable<bool> RootRound::hasContent(std::string path, LocalStat stat, std::string sha256) {
    try {
        co_return (co_await SourceContent::read(path, stat))->sha256() == sha256;
    } catch (const KRCryptoError& error) {
        Log::info(category, error.what());
    } catch (const FileError& error) {
        Log::info(category, error.code().message());
    }
    co_return false;
}

asio::awaitable<void> RootRound::enqueue(SyncPlan::Upload file) {
    const auto& relPath = file.entry.relPath;
    UploadJob job;
    job.sourcePath = ledger_.absolute(relPath);
    job.folderId = parentId(relPath);
    job.name = RelativePath::name(relPath);
    job.clientFileId = newUUID();
    job.origin = TransferOrigin::Sync{ledger_.root().id, relPath};
    job.sourceStat = file.entry.stat;
    job.plainSize = file.entry.stat.size;
    // What was trashed elsewhere and is changed here is a new file.
    const auto item = file.base ? context_.index->item(file.base->itemId) : std::nullopt;
    if (item && !item->deletedAt) {
        job.name = item->name; // there it may be a numbered one
        job.fileId = file.base->itemId;
        job.baseVersion = file.base->version;
    }
    ledger_.mark(relPath, PathStatus::queued);
    co_await queue_.enqueueUpload(std::move(job), newUUID());
}

} // namespace Korvane
