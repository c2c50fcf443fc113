#include "KorvaneCore/sync/RootReconciler.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/PartialFile.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneCore/sync/ContentHash.hpp"
#include "KorvaneCore/sync/QueuedUploads.hpp"

#include <algorithm>
#include <utility>

namespace Korvane {

namespace {

std::string nameOf(const std::string& relPath) {
    return relPath.substr(relPath.rfind('/') + 1); // npos + 1 is 0
}

std::string parentOf(const std::string& relPath) {
    const auto slash = relPath.rfind('/');
    return slash == std::string::npos ? "" : relPath.substr(0, slash);
}

std::string absolute(const SyncRoot& root, const std::string& relPath) {
    return root.path + "/" + relPath;
}

std::map<std::string, std::string> foldersOf(const SyncRoot& root,
                                             const std::map<std::string, LocalIndex::BaseEntry>& base) {
    std::map<std::string, std::string> folders{{"", root.folderId}};
    for (const auto& [relPath, entry] : base)
        if (entry.isFolder)
            folders[relPath] = entry.itemId;
    return folders;
}

} // namespace

asio::awaitable<void> RootReconciler::reconcile(SyncRoot root) {
    forgetTrashedFolders(root);
    if (!reconciled_.contains(root.id))
        co_await takeUpUnheardOf(root);
    reconciled_.insert(root.id);
    // What the queue has no more by now, the base knows once that has been heard of.
    const auto queued = co_await offload([&] { return QueuedUploads(*parts_.context.index, root.id); });
    co_await parts_.queue->delivered();
    const auto scan = co_await offload([path = root.path] { return scanFolder(path); });
    const auto base = parts_.context.index->baseEntries(root.id);
    const auto plan = co_await offload([&] { return planSync(scan, base); });
    auto folders = foldersOf(root, base);
    markSkipped(root, scan);
    for (const auto& step : plan.moves)
        co_await move(root, step, folders);
    for (const auto& folder : plan.newFolders)
        co_await makeFolder(root, folder, folders);
    for (const auto& doubtful : plan.doubtful)
        if (!queued.hold(doubtful.entry) && !co_await isContentOf(root, doubtful))
            co_await upload(root, doubtful, folders);
    for (const auto& file : plan.uploads)
        if (!queued.hold(file.entry) && !co_await isInAccount(root, file, folders))
            co_await upload(root, file, folders);
    std::vector<StatusDatabase::Entry> synced;
    for (const auto& relPath : plan.unchanged)
        if (!parts_.status->status(absolute(root, relPath)))
            synced.push_back({absolute(root, relPath), PathStatus::synced, {}});
    if (!synced.empty())
        parts_.status->setMany(synced);
}

// Names are the user's own and stay out of the log; the status says which entries are meant.
void RootReconciler::markSkipped(const SyncRoot& root, const LocalScan& scan) {
    for (const auto& skipped : scan.skipped) {
        const auto path = absolute(root, skipped.relPath);
        if (parts_.status->status(path) == PathStatus::excluded)
            continue;
        Log::warning("sync", "an entry is not synced: " + skipped.reason);
        parts_.status->set(PathStatus::excluded, path);
    }
}

// Files of a folder in the Trash have nowhere to go; it is made anew, and they with it.
void RootReconciler::forgetTrashedFolders(const SyncRoot& root) {
    for (const auto& [relPath, entry] : parts_.context.index->baseEntries(root.id)) {
        if (!entry.isFolder)
            continue;
        const auto item = parts_.context.index->item(entry.itemId);
        if (item && item->deletedAt)
            parts_.context.index->removeBase(root.id, relPath, true);
    }
}

const std::string& RootReconciler::parentId(const Folders& folders, const std::string& relPath) {
    const auto found = folders.find(parentOf(relPath));
    if (found == folders.end())
        throw std::runtime_error("the folder of " + relPath + " is not in the account yet");
    return found->second;
}

// A folder of that name may be there already: from another device, or of an answer that was lost.
asio::awaitable<RemoteFolder> RootReconciler::folderNamed(const std::string& name,
                                                          const std::string& parentId) {
    const auto masterKey = co_await parts_.context.masterKey();
    const auto blindIndex = masterKey->nameBlindIndex(name);
    try {
        co_return co_await parts_.context.api->createFolder(
            {newUUID(), parentId, masterKey->sealMeta(KRCrypto::FolderMeta(name)), blindIndex});
    } catch (const APIError& error) {
        if (!error.is<APIError::NameConflict>())
            throw;
    }
    const auto page = co_await parts_.context.api->allChildren(parentId);
    const auto existing = std::ranges::find_if(
        page.folders, [&](const RemoteFolder& folder) { return folder.nameBlindIndex == blindIndex; });
    if (existing == page.folders.end())
        throw APIError(APIError::NameConflict{}); // a file has the name
    co_return *existing;
}

asio::awaitable<void> RootReconciler::makeFolder(const SyncRoot& root, const LocalScan::Entry& entry,
                                                 Folders& folders) {
    const auto folder = co_await folderNamed(nameOf(entry.relPath), parentId(folders, entry.relPath));
    parts_.context.index->apply(folder, *co_await parts_.context.masterKey());
    setBase(root, entry, folder.id, 0, std::nullopt);
    folders[entry.relPath] = folder.id;
    mark(root, entry.relPath, PathStatus::synced, folder.id);
}

asio::awaitable<void> RootReconciler::move(const SyncRoot& root, const SyncPlan::Move& move,
                                           Folders& folders) {
    const auto masterKey = co_await parts_.context.masterKey();
    const auto item = parts_.context.index->item(move.base.itemId);
    if (!item)
        co_return; // not known here yet; a later reconcile finds it moved still
    const auto name = nameOf(move.entry.relPath);
    const auto parent = parentId(folders, move.entry.relPath);
    const auto blindIndex = masterKey->nameBlindIndex(name);
    if (item->isFolder) {
        UpdateFolderRequest request{parent, masterKey->sealMeta(KRCrypto::FolderMeta(name)), blindIndex, {}};
        parts_.context.index->apply(co_await parts_.context.api->updateFolder(item->id, request), *masterKey);
    } else {
        auto meta = masterKey->openMeta(item->metaEnc);
        auto fileMeta = *meta.file();
        fileMeta.name = name;
        UpdateFileRequest request{parent, masterKey->sealMeta(fileMeta), blindIndex, {}};
        parts_.context.index->apply(co_await parts_.context.api->updateFile(item->id, request), *masterKey);
    }
    parts_.context.index->moveBase(root.id, move.from, move.entry.relPath);
    if (item->isFolder)
        for (const auto& [relPath, entry] : parts_.context.index->baseEntries(root.id))
            if (entry.isFolder)
                folders[relPath] = entry.itemId;
    parts_.status->remove(absolute(root, move.from), true);
    mark(root, move.entry.relPath, PathStatus::synced, item->id);
}

// Dated or written anew with the content it had: the base learns its new looks.
asio::awaitable<bool> RootReconciler::isContentOf(const SyncRoot& root, const SyncPlan::Upload& doubtful) {
    const auto& [entry, base] = doubtful;
    if (!base->sha256 || !co_await hasContent(absolute(root, entry.relPath), entry.stat, *base->sha256))
        co_return false;
    setBase(root, entry, base->itemId, base->version, base->sha256);
    co_return true;
}

// The account may have the file although the base does not know of it: the folder was synced before, or this
// process ended too early.
asio::awaitable<bool> RootReconciler::isInAccount(const SyncRoot& root, const SyncPlan::Upload& upload,
                                                  const Folders& folders) {
    const auto& [entry, base] = upload;
    if (base)
        co_return false;
    const auto name = nameOf(entry.relPath);
    const auto item = parts_.context.index->child(parentId(folders, entry.relPath), name);
    if (!item || item->isFolder || !item->sha256 || item->size != entry.stat.size || item->name != name ||
        !co_await hasContent(absolute(root, entry.relPath), entry.stat, *item->sha256))
        co_return false;
    setBase(root, entry, item->id, item->version, item->sha256);
    mark(root, entry.relPath, PathStatus::synced, item->id);
    co_return true;
}

// One that cannot be read now is left to its upload, which says so.
asio::awaitable<bool> RootReconciler::hasContent(std::string path, LocalStat stat, std::string sha256) {
    try {
        co_return co_await contentHash(path, stat) == sha256;
    } catch (const KRCrypto::KRCryptoError& error) {
        Log::info("sync", error.what());
    } catch (const FileError& error) {
        Log::info("sync", error.code().message());
    }
    co_return false;
}

asio::awaitable<void> RootReconciler::upload(const SyncRoot& root, const SyncPlan::Upload& upload,
                                             const Folders& folders) {
    UploadJob job;
    job.sourcePath = absolute(root, upload.entry.relPath);
    job.folderId = parentId(folders, upload.entry.relPath);
    job.name = nameOf(upload.entry.relPath);
    job.clientFileId = newUUID();
    job.origin = TransferOrigin::Sync{root.id, upload.entry.relPath};
    job.sourceStat = upload.entry.stat;
    job.plainSize = upload.entry.stat.size;
    if (upload.base) {
        job.fileId = upload.base->itemId;
        job.baseVersion = upload.base->version;
    }
    mark(root, upload.entry.relPath, PathStatus::queued);
    co_await parts_.queue->enqueueUpload(std::move(job), newUUID());
}

void RootReconciler::setBase(const SyncRoot& root, const LocalScan::Entry& entry, const std::string& itemId,
                             std::int64_t version, const std::optional<std::string>& sha256) {
    parts_.context.index->setBase(root.id, {entry.relPath, itemId, entry.stat.isDirectory, version,
                                            entry.stat.size, entry.stat.mtime, entry.stat.inode, sha256});
}

void RootReconciler::mark(const SyncRoot& root, const std::string& relPath, PathStatus status,
                          const std::optional<std::string>& itemId) {
    parts_.status->set(status, absolute(root, relPath), itemId);
}

asio::awaitable<std::optional<std::string>> RootReconciler::settled(TransferOutcome outcome) {
    const auto roots = SyncRoots::all(*parts_.context.index);
    const auto rootOf = [&](const std::optional<TransferOrigin>& origin) -> const SyncRoot* {
        const auto* sync = origin ? origin->as<TransferOrigin::Sync>() : nullptr;
        const auto found =
            sync != nullptr ? std::ranges::find(roots, sync->rootId, &SyncRoot::id) : roots.end();
        return found == roots.end() ? nullptr : &*found;
    };
    const auto pathOf = [](const TransferOrigin& origin) {
        return origin.as<TransferOrigin::Sync>()->relPath;
    };
    if (const auto* failed = outcome.as<TransferOutcome::Failed>())
        if (const auto* root = rootOf(failed->origin))
            mark(*root, pathOf(*failed->origin), PathStatus::error);
    if (const auto* dropped = outcome.as<TransferOutcome::Dropped>())
        if (const auto* root = rootOf(dropped->origin)) {
            mark(*root, pathOf(*dropped->origin), PathStatus::queued);
            co_return root->id;
        }
    const auto* done = outcome.as<TransferOutcome::Uploaded>();
    const auto* root = done != nullptr ? rootOf(done->job.origin) : nullptr;
    if (root == nullptr)
        co_return std::nullopt;
    co_await uploaded(*root, done->job, done->file.id, done->file.version);
    // Of a change during the upload the event has passed: the queue had the file then.
    const auto now = co_await offload([path = done->job.sourcePath] { return localStat(path); });
    co_return now&& now != done->job.sourceStat ? std::optional(root->id) : std::nullopt;
}

// An upload may have ended, and this process with it, before its outcome was heard of. It is told by its
// file: that lies where it belongs, with the content sent, and the base does not know it.
asio::awaitable<void> RootReconciler::takeUpUnheardOf(const SyncRoot& root) {
    auto& index = *parts_.context.index;
    const auto base = index.baseEntries(root.id);
    const auto folders = foldersOf(root, base);
    std::map<std::string, std::int64_t> known; // versions, by item
    for (const auto& [relPath, entry] : base)
        known[entry.itemId] = entry.version;
    for (const auto& record : index.transfers({{TransferRecord::State::done}}, -1)) {
        const auto read = readableJob(record);
        const auto* job = read ? std::get_if<UploadJob>(&*read) : nullptr;
        const auto* origin = job != nullptr ? job->origin.as<TransferOrigin::Sync>() : nullptr;
        if (origin == nullptr || origin->rootId != root.id || !job->sourceStat)
            continue;
        const auto item = index.item(job->fileId.value_or(job->clientFileId));
        const auto folder = folders.find(parentOf(origin->relPath));
        const auto knownVersion = item ? known.find(item->id) : known.end();
        if (item && !item->deletedAt && item->sha256 == job->sha256 && folder != folders.end() &&
            folder->second == item->parentId &&
            (knownVersion == known.end() || knownVersion->second < item->version))
            co_await uploaded(root, *job, item->id, item->version);
    }
}

// A conflict copy is another file than the one it was made from, here as in the account.
asio::awaitable<void> RootReconciler::uploaded(const SyncRoot& root, const UploadJob& job,
                                               const std::string& itemId, std::int64_t version) {
    auto relPath = job.origin.as<TransferOrigin::Sync>()->relPath;
    auto status = PathStatus::synced;
    if (job.isConflictCopy) {
        const auto parent = parentOf(relPath);
        const auto renamed = parent.empty() ? job.name : parent + "/" + job.name;
        const auto from = absolute(root, relPath);
        const auto to = absolute(root, renamed);
        const auto error = co_await offload([from, to] { return renameToFreeName(from, to); });
        if (error && error != std::errc::no_such_file_or_directory) {
            Log::warning("sync", "the conflict copy keeps its local name: " + error.message());
        } else {
            parts_.ownWrites->registerRemoval(from);
            parts_.ownWrites->registerWrite(to, *job.sourceStat);
            parts_.context.index->removeBase(root.id, relPath, false);
            parts_.status->remove(from, false);
            relPath = renamed;
        }
        status = PathStatus::conflict;
    }
    setBase(root, {relPath, *job.sourceStat}, itemId, version, job.sha256);
    mark(root, relPath, status, itemId);
}

} // namespace Korvane
