#include "KorvaneCore/sync/RootReconciler.hpp"

#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/PartialFile.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneCore/sync/ContentHash.hpp"

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

bool isUnderWay(TransferRecord::State state) {
    return state != TransferRecord::State::done;
}

} // namespace

asio::awaitable<void> RootReconciler::reconcile(SyncRoot root) {
    const auto scan = co_await offload([path = root.path] { return scanFolder(path); });
    forgetTrashedFolders(root);
    const auto base = parts_.context.index->baseEntries(root.id);
    const auto plan = planSync(scan, base);
    Folders folders{{"", root.folderId}};
    for (const auto& [relPath, entry] : base)
        if (entry.isFolder)
            folders[relPath] = entry.itemId;
    markSkipped(root, scan);
    for (const auto& step : plan.moves)
        co_await move(root, step, folders);
    for (const auto& folder : plan.newFolders)
        co_await makeFolder(root, folder, folders);
    const auto underWay = co_await parts_.queue->activeOrigins();
    const auto waits = [&](const std::string& relPath) {
        const auto found = underWay.find(TransferOrigin(TransferOrigin::Sync{root.id, relPath}));
        return found != underWay.end() && isUnderWay(found->second);
    };
    for (const auto& doubtful : plan.doubtful)
        if (!waits(doubtful.entry.relPath) && !co_await isContentOf(root, doubtful))
            co_await upload(root, doubtful, folders);
    for (const auto& file : plan.uploads)
        if (!waits(file.entry.relPath))
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
    if (!base->sha256)
        co_return false;
    const auto hash = co_await contentHash(absolute(root, entry.relPath), entry.stat);
    if (hash != *base->sha256)
        co_return false;
    setBase(root, entry, base->itemId, base->version, base->sha256);
    co_return true;
}

asio::awaitable<void> RootReconciler::upload(const SyncRoot& root, const SyncPlan::Upload& upload,
                                             const Folders& folders) {
    UploadJob job;
    job.sourcePath = absolute(root, upload.entry.relPath);
    job.folderId = parentId(folders, upload.entry.relPath);
    job.name = nameOf(upload.entry.relPath);
    job.clientFileId = newUUID();
    job.origin = TransferOrigin::Sync{root.id, upload.entry.relPath};
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

asio::awaitable<void> RootReconciler::settled(TransferOutcome outcome) {
    const auto roots = SyncRoots::all(*parts_.context.index);
    const auto rootOf = [&](const TransferOrigin::Sync& origin) -> const SyncRoot* {
        const auto found = std::ranges::find(roots, origin.rootId, &SyncRoot::id);
        return found == roots.end() ? nullptr : &*found;
    };
    const auto report = [&](const std::optional<TransferOrigin>& origin, PathStatus status) {
        const auto* sync = origin ? origin->as<TransferOrigin::Sync>() : nullptr;
        if (sync != nullptr)
            if (const auto* root = rootOf(*sync))
                mark(*root, sync->relPath, status);
    };
    if (const auto* failed = outcome.as<TransferOutcome::Failed>())
        report(failed->origin, PathStatus::error);
    if (const auto* dropped = outcome.as<TransferOutcome::Dropped>())
        report(dropped->origin, PathStatus::queued); // the next reconcile takes it up
    const auto* done = outcome.as<TransferOutcome::Uploaded>();
    const auto* sync = done != nullptr ? done->job.origin.as<TransferOrigin::Sync>() : nullptr;
    if (sync != nullptr)
        if (const auto* root = rootOf(*sync))
            co_await uploaded(*root, *sync, *done);
}

// A conflict copy is another file than the one it was made from, here as in the account.
asio::awaitable<void> RootReconciler::uploaded(const SyncRoot& root, const TransferOrigin::Sync& origin,
                                               const TransferOutcome::Uploaded& outcome) {
    const auto& job = outcome.job;
    auto relPath = origin.relPath;
    auto status = PathStatus::synced;
    if (job.isConflictCopy) {
        const auto parent = parentOf(relPath);
        const auto renamed = parent.empty() ? job.name : parent + "/" + job.name;
        const auto from = absolute(root, relPath);
        const auto to = absolute(root, renamed);
        const auto error = co_await offload([from, to] { return renameToFreeName(from, to); });
        if (error) {
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
    setBase(root, {relPath, *job.sourceStat}, outcome.file.id, outcome.file.version, job.sha256);
    mark(root, relPath, status, outcome.file.id);
}

} // namespace Korvane
