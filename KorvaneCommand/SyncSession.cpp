#include "KorvaneCommand/SyncSession.hpp"

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>

namespace Korvane {

namespace {

constexpr std::chrono::seconds settleInterval{2};
constexpr std::chrono::minutes pullInterval{1};
constexpr std::chrono::seconds networkPatience{1}; ///< for the first word on the network's cost

} // namespace

SyncSession::SyncSession(Workshop& workshop) : workshop_(workshop) {
    const auto executor = workshop_.client.context.get_executor();
    engine_ = std::make_shared<SyncEngine>(executor, systemClock(), settleInterval,
                                           [this](SyncEngine::Root root) -> asio::awaitable<void> {
                                               if (auto known = SyncRoots::find(*workshop_.index, root.id))
                                                   co_await reconcile(*std::move(known));
                                               else
                                                   forget(root.id);
                                           });
    reconciler_ = std::make_shared<RootReconciler>(RootReconciler::Parts{
        workshop_.jobContext(), workshop_.queue, workshop_.status, engine_->ownWrites()});
    widgets_ = std::make_shared<WidgetSchedule>(executor, systemClock(), Workshop::notifications(),
                                                [this]() -> asio::awaitable<void> {
                                                    co_await workshop_.keepOffline();
                                                    co_await workshop_.publishWidgets();
                                                });
}

asio::awaitable<bool> SyncSession::during(asio::awaitable<void> work) {
    if (!workshop_.ownQueue()) {
        workshop_.requests->nudge();
        co_return false;
    }
    std::exception_ptr failure;
    try {
        co_await start();
        co_await std::move(work);
    } catch (...) {
        failure = std::current_exception();
    }
    co_await stop();
    if (failure)
        std::rethrow_exception(failure);
    co_return true;
}

asio::awaitable<void> SyncSession::start() {
    co_await workshop_.queue->addOutcomeHandler(
        [this](TransferOutcome outcome) { return settled(std::move(outcome)); });
    co_await workshop_.queue->setOwnWriteHandler(
        [this](std::filesystem::path path, LocalStat stat) -> asio::awaitable<void> {
            engine_->ownWrites()->registerWrite(path.string(), stat);
            co_return;
        });
    control_ = std::make_unique<QueueControl>(workshop_.client.context.get_executor(), workshop_.queue,
                                              workshop_.requests, Workshop::notifications());
    co_await firstNetworkCost();
    co_await control_->start();
}

// What must not go over a metered network may not start before it is known to be none.
asio::awaitable<void> SyncSession::firstNetworkCost() {
    const auto told = std::make_shared<asio::steady_timer>(co_await asio::this_coro::executor);
    told->expires_after(networkPatience);
    networkCost_ = std::make_unique<NetworkCost>([this, told](bool isMetered) {
        control_->setNetworkMetered(isMetered);
        asio::post(told->get_executor(), [told] { told->expires_at(asio::steady_timer::time_point::min()); });
    });
    boost::system::error_code woken;
    co_await told->async_wait(asio::redirect_error(asio::use_awaitable, woken));
}

asio::awaitable<void> SyncSession::stop() {
    periodicPull_.reset();
    co_await widgets_->stop();
    co_await engine_->stop();
    networkCost_.reset();
    if (control_)
        co_await control_->stop();
    control_.reset();
    workshop_.leaveQueue();
}

asio::awaitable<void> SyncSession::startSync() {
    co_await workshop_.pullIfPossible();
    co_await widgets_->start();
    co_await engine_->start();
    periodicPull_.emplace(workshop_.client.context.get_executor(), systemClock(), pullInterval,
                          [this]() -> asio::awaitable<void> {
                              co_await workshop_.pull();
                              widgets_->changed();
                          });
    for (const auto& root : SyncRoots::all(*workshop_.index)) {
        waiting_.insert(root.id);
        co_await engine_->addRoot({root.id, root.path});
        co_await engine_->scheduleReconcile(root.id, Clock::Duration::zero());
    }
}

// It is no longer synced.
void SyncSession::forget(const std::string& rootId) {
    waiting_.erase(rootId);
    incomplete_.erase(rootId);
}

// What the account has by now spares uploads.
asio::awaitable<void> SyncSession::reconcile(SyncRoot root) {
    waiting_.erase(root.id); // what comes meanwhile counts again
    incomplete_.insert(root.id);
    std::exception_ptr failure;
    ++reconciling_;
    try {
        co_await workshop_.pullIfPossible();
        co_await reconciler_->reconcile(root);
        incomplete_.erase(root.id);
    } catch (...) {
        failure = std::current_exception();
    }
    --reconciling_;
    widgets_->changed();
    if (failure)
        std::rethrow_exception(failure);
}

asio::awaitable<void> SyncSession::settled(TransferOutcome outcome) {
    const auto again = co_await reconciler_->settled(outcome);
    const auto* failure = outcome.as<TransferOutcome::Failed>();
    if (failure == nullptr || workshop_.index->transfer(failure->id)) // else the reconciler has withdrawn it
        tally_.add(outcome);
    co_await workshop_.offline->settled(std::move(outcome));
    widgets_->changed();
    if (!again)
        co_return;
    waiting_.insert(*again);
    co_await engine_->scheduleReconcile(*again, settleInterval);
}

} // namespace Korvane
