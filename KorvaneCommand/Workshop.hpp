#pragma once

#include "KorvaneCommand/Client.hpp"
#include "KorvaneCore/network/NetworkCost.hpp"
#include "KorvaneCore/platform/FileLock.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/StatusDatabase.hpp"
#include "KorvaneCore/sync/ChangePull.hpp"
#include "KorvaneCore/sync/JobContext.hpp"
#include "KorvaneCore/sync/QueueControl.hpp"
#include "KorvaneCore/sync/QueueRequests.hpp"
#include "KorvaneCore/sync/RootReconciler.hpp"
#include "KorvaneCore/sync/SyncEngine.hpp"
#include "KorvaneCore/sync/TransferQueue.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace Korvane {

/// A signed-in client with its index and its transfer queue, for commands that move files. The queue is run
/// by one process at a time: by this one once startTransfers() has said so, else by the one that runs
/// already.
class Workshop {
public:
    /// Throws APIError (NotSignedIn).
    Workshop();

    Client client;
    std::shared_ptr<LocalIndex> index;
    std::shared_ptr<StatusDatabase> status;
    std::shared_ptr<TransferQueue> queue;
    std::shared_ptr<QueueRequests> requests;
    std::shared_ptr<SyncEngine> engine;
    std::shared_ptr<RootReconciler> reconciler;

    /// Brings the index up to the account. Throws APIError, SQLiteError.
    asio::awaitable<void> pull();

    /// pull(), unless the account cannot be reached now.
    asio::awaitable<void> pullIfPossible();

    /// Takes over the queue and starts it. False when another process runs it; that one learns of what was
    /// enqueued here.
    asio::awaitable<bool> startTransfers();

    /// Stops what startTransfers() started and waits for its end.
    asio::awaitable<void> stopTransfers();

    /// Watches the sync roots and reconciles each now and after changes, and pulls now and then.
    asio::awaitable<void> startSync();

    /// Whether no root is known to need a reconcile.
    [[nodiscard]] bool isReconciled() const noexcept { return unreconciled_.empty() && reconciling_ == 0; }

    /// The folder or file on a "/"-separated path below the account's root folder.
    [[nodiscard]] std::optional<IndexItem> itemAt(const std::string& path);

    /// The folder on that path, made where it is missing.
    asio::awaitable<std::string> folderAt(std::string path);

private:
    [[nodiscard]] JobContext jobContext();
    asio::awaitable<void> reconcile(SyncRoot root);
    asio::awaitable<void> settled(TransferOutcome outcome);

    std::shared_ptr<const KRCrypto::MasterKey> masterKey_;
    std::string rootFolderId_;
    std::set<std::string> unreconciled_; ///< ids of roots
    int reconciling_ = 0;                ///< how many are at it
    FileLock lock_;
    std::unique_ptr<QueueControl> control_;
    std::unique_ptr<NetworkCost> networkCost_;
    std::optional<PeriodicPull> periodicPull_;
};

} // namespace Korvane
