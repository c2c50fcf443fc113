#pragma once

#include "KorvaneCommand/TransferTally.hpp"
#include "KorvaneCommand/Workshop.hpp"
#include "KorvaneCore/network/NetworkCost.hpp"
#include "KorvaneCore/publisher/WidgetSchedule.hpp"
#include "KorvaneCore/queue/QueueControl.hpp"
#include "KorvaneCore/sync/ChangePull.hpp"
#include "KorvaneCore/sync/RootReconciler.hpp"
#include "KorvaneCore/sync/SyncEngine.hpp"

#include <memory>
#include <optional>
#include <set>
#include <string>

namespace Korvane {

/// What moves by itself while a command runs: the transfer queue and, if asked for, the mirrored folders, the
/// offline copies and the widgets.
class SyncSession {
public:
    /// The workshop outlives it. Stopped before it is destroyed.
    explicit SyncSession(Workshop& workshop);

    /// Takes over the queue, starts it, and does the work; stops everything when that ends or throws. False,
    /// without having done the work, when another process runs the queue; that one learns of what was
    /// enqueued here.
    asio::awaitable<bool> during(asio::awaitable<void> work);

    /// Watches the sync roots and reconciles each now and after changes, pulls now and then, and keeps the
    /// widgets and the offline copies up to date.
    asio::awaitable<void> startSync();

    /// Whether no root waits for a reconcile.
    [[nodiscard]] bool isReconciled() const noexcept { return waiting_.empty() && reconciling_ == 0; }

    /// Whether the last reconcile of each root left nothing for another try.
    [[nodiscard]] bool isComplete() const noexcept { return incomplete_.empty(); }

    [[nodiscard]] const TransferTally& tally() const noexcept { return tally_; }

private:
    asio::awaitable<void> start();
    asio::awaitable<void> stop();
    asio::awaitable<void> firstNetworkCost();
    void forget(const std::string& rootId);
    asio::awaitable<void> reconcile(SyncRoot root);
    asio::awaitable<void> settled(TransferOutcome outcome);

    Workshop& workshop_;
    std::shared_ptr<SyncEngine> engine_;
    std::shared_ptr<RootReconciler> reconciler_;
    std::shared_ptr<WidgetSchedule> widgets_;
    std::unique_ptr<QueueControl> control_;
    std::unique_ptr<NetworkCost> networkCost_;
    std::optional<PeriodicPull> periodicPull_;
    std::set<std::string> waiting_;    ///< ids of roots
    std::set<std::string> incomplete_; ///< likewise
    int reconciling_ = 0;              ///< how many are at it
    TransferTally tally_;
};

} // namespace Korvane
