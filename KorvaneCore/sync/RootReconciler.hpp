#pragma once

#include "KorvaneCore/storage/StatusDatabase.hpp"
#include "KorvaneCore/sync/JobContext.hpp"
#include "KorvaneCore/sync/OwnWriteTracker.hpp"
#include "KorvaneCore/sync/SyncPlan.hpp"
#include "KorvaneCore/sync/SyncRoots.hpp"
#include "KorvaneCore/sync/TransferQueue.hpp"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace Korvane {

/// Brings what changed below a sync root to the account: makes folders, moves what was moved, and hands new
/// and changed files to the queue. What was removed here stays in the account, and what changed there does
/// not come here.
///
/// Operations are coroutines on the caller's executor; for one root one at a time. They throw APIError,
/// SQLiteError and FileError; what was done until then is kept, and the next reconcile goes on.
class RootReconciler {
public:
    struct Parts {
        JobContext context;
        std::shared_ptr<TransferQueue> queue;
        std::shared_ptr<StatusDatabase> status;
        std::shared_ptr<OwnWriteTracker> ownWrites;
    };

    explicit RootReconciler(Parts parts) : parts_(std::move(parts)) {}

    asio::awaitable<void> reconcile(SyncRoot root);

    /// What becomes of a file of a root, as the queue says. An upload of another root or origin is no
    /// concern. Gives the id of the root when it must be reconciled again.
    asio::awaitable<std::optional<std::string>> settled(TransferOutcome outcome);

private:
    using Folders = std::map<std::string, std::string>; ///< item ids, by path in the root

    asio::awaitable<void> makeFolder(const SyncRoot& root, const LocalScan::Entry& entry, Folders& folders);
    asio::awaitable<RemoteFolder> folderNamed(const std::string& name, const std::string& parentId);
    asio::awaitable<void> move(const SyncRoot& root, const SyncPlan::Move& move, Folders& folders);
    asio::awaitable<bool> isContentOf(const SyncRoot& root, const SyncPlan::Upload& doubtful);
    asio::awaitable<bool> isInAccount(const SyncRoot& root, const SyncPlan::Upload& upload,
                                      const Folders& folders);
    static asio::awaitable<bool> hasContent(std::string path, LocalStat stat, std::string sha256);
    asio::awaitable<void> upload(const SyncRoot& root, const SyncPlan::Upload& upload,
                                 const Folders& folders);
    asio::awaitable<void> takeUpUnheardOf(const SyncRoot& root);
    asio::awaitable<void> uploaded(const SyncRoot& root, const UploadJob& job, const std::string& itemId,
                                   std::int64_t version);
    void setBase(const SyncRoot& root, const LocalScan::Entry& entry, const std::string& itemId,
                 std::int64_t version, const std::optional<std::string>& sha256);
    void markSkipped(const SyncRoot& root, const LocalScan& scan);
    void forgetTrashedFolders(const SyncRoot& root);
    [[nodiscard]] static const std::string& parentId(const Folders& folders, const std::string& relPath);
    void mark(const SyncRoot& root, const std::string& relPath, PathStatus status,
              const std::optional<std::string>& itemId = {});

    Parts parts_;
    std::set<std::string> reconciled_; ///< roots, in this process
};

} // namespace Korvane
