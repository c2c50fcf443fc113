#pragma once

#include "KorvaneCommand/Client.hpp"
#include "KorvaneCore/network/NetworkCost.hpp"
#include "KorvaneCore/platform/FileLock.hpp"
#include "KorvaneCore/publisher/WidgetPublisher.hpp"
#include "KorvaneCore/publisher/WidgetSchedule.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/StatusDatabase.hpp"
#include "KorvaneCore/sync/JobContext.hpp"
#include "KorvaneCore/sync/OfflineCopies.hpp"
#include "KorvaneCore/sync/QueueControl.hpp"
#include "KorvaneCore/sync/QueueRequests.hpp"
#include "KorvaneCore/sync/RootReconciler.hpp"
#include "KorvaneCore/sync/SyncEngine.hpp"
#include "KorvaneCore/sync/TransferQueue.hpp"

#include <functional>
#include <memory>
#include <optional>
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
    std::shared_ptr<OfflineCopies> offline;

    /// Brings the index up to the account. Throws APIError.
    asio::awaitable<void> pull();

    /// Takes over the queue and starts it. False when another process runs it; that one learns of what was
    /// enqueued here.
    asio::awaitable<bool> startTransfers();

    /// Stops what startTransfers() started and waits for its end.
    asio::awaitable<void> stopTransfers();

    /// Asks for what is pinned and not here, unless another process runs the queue: that one does it, once it
    /// knows of the pins.
    asio::awaitable<void> keepOffline();

    /// Publishes what the widgets are to show today, if that is anything new.
    asio::awaitable<WidgetPublisher::Publication> publishWidgets();

    /// Watches the sync roots and reconciles each now and after changes; keeps the widgets and the offline
    /// copies up to date.
    asio::awaitable<void> startSync();

    /// Positive once every root has been reconciled since startSync().
    [[nodiscard]] int reconciles() const noexcept { return reconciles_; }

    /// The folder or file on a "/"-separated path below the account's root folder.
    [[nodiscard]] std::optional<IndexItem> itemAt(const std::string& path);

    /// The "/"-separated path of an item below the account's root folder; none when it lies elsewhere.
    [[nodiscard]] std::optional<std::string> pathOf(const IndexItem& item);

    /// The folder on that path, made where it is missing.
    asio::awaitable<std::string> folderAt(std::string path);

private:
    [[nodiscard]] JobContext jobContext();
    [[nodiscard]] bool ownQueue();

    std::shared_ptr<const KRCrypto::MasterKey> masterKey_;
    std::string rootFolderId_;
    int reconciles_ = 0;
    FileLock lock_; // while this process may run the queue
    std::shared_ptr<WidgetPublisher> publisher_;
    std::shared_ptr<WidgetSchedule> widgets_;
    std::unique_ptr<QueueControl> control_;
    std::unique_ptr<NetworkCost> networkCost_;
};

} // namespace Korvane
