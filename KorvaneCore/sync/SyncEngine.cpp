#include "KorvaneCore/sync/SyncEngine.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/platform/Finally.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/Spawn.hpp"
#include "KorvaneCore/sync/EventFilter.hpp"

#include <boost/asio/redirect_error.hpp>

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

namespace Korvane {

namespace {

constexpr auto category = "sync";

/// Joins the watcher's thread away from the strand.
asio::awaitable<void> release(std::shared_ptr<FSEventWatcher> watcher) {
    co_await offload([watcher = std::move(watcher)]() mutable { watcher.reset(); });
}

template <class Map>
auto take(Map& map, const std::string& key) {
    auto node = map.extract(key);
    return node.empty() ? typename Map::mapped_type() : std::move(node.mapped());
}

} // namespace

SyncEngine::SyncEngine(const asio::any_io_executor& executor, std::shared_ptr<Clock> clock,
                       Clock::Duration settleInterval, Reconcile reconcile, FileEventSource source)
    : strand_(asio::make_strand(executor)),
      clock_(std::move(clock)),
      settleInterval_(settleInterval),
      reconcile_(std::move(reconcile)),
      source_(std::move(source)),
      container_(SharedContainer::resolvedLocation().string() + "/"),
      ownWrites_(std::make_shared<OwnWriteTracker>(ownWriteWindow, clock_)),
      reconcileEnd_(strand_, asio::steady_timer::time_point::max()) {}

asio::awaitable<void> SyncEngine::start() {
    return on<void>(strand_, std::bind_front(&SyncEngine::startOnStrand, shared_from_this()));
}

asio::awaitable<void> SyncEngine::stop() {
    return on<void>(strand_, std::bind_front(&SyncEngine::stopOnStrand, shared_from_this()));
}

asio::awaitable<void> SyncEngine::addRoot(Root root) {
    return on<void>(strand_, std::bind_front(&SyncEngine::addOnStrand, shared_from_this(), std::move(root)));
}

asio::awaitable<void> SyncEngine::removeRoot(std::string rootId) {
    return on<void>(strand_,
                    std::bind_front(&SyncEngine::removeOnStrand, shared_from_this(), std::move(rootId)));
}

asio::awaitable<void> SyncEngine::scheduleReconcile(std::string rootId, Clock::Duration delay) {
    return on<void>(strand_, std::bind_front(&SyncEngine::scheduleOnStrand, shared_from_this(),
                                             std::move(rootId), delay));
}

asio::awaitable<void> SyncEngine::startOnStrand() {
    isRunning_ = true;
    std::exception_ptr failure;
    try {
        for (const auto& [id, root] : std::map(roots_))
            co_await watch(root);
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        co_await stopOnStrand();
        std::rethrow_exception(failure);
    }
}

asio::awaitable<void> SyncEngine::stopOnStrand() {
    isRunning_ = false;
    for (const auto& [id, root] : roots_)
        cancelTasks(id);
    for (auto& [id, watcher] : std::exchange(watchers_, {}))
        co_await release(std::move(watcher));
    while (!reconciling_.empty())
        co_await reconcileEnds();
}

asio::awaitable<void> SyncEngine::addOnStrand(Root root) {
    co_await removeOnStrand(root.id);
    roots_.insert_or_assign(root.id, root);
    std::exception_ptr failure;
    try {
        co_await watch(root);
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        co_await removeOnStrand(root.id);
        std::rethrow_exception(failure);
    }
}

asio::awaitable<void> SyncEngine::removeOnStrand(std::string rootId) {
    roots_.erase(rootId);
    retryDelays_.erase(rootId);
    cancelTasks(rootId);
    if (auto watcher = take(watchers_, rootId))
        co_await release(std::move(watcher));
    while (reconciling_.contains(rootId))
        co_await reconcileEnds();
}

asio::awaitable<void> SyncEngine::scheduleOnStrand(std::string rootId, Clock::Duration delay) {
    schedule(rootId, delay);
    co_return;
}

asio::awaitable<void> SyncEngine::watch(Root root) {
    if (!isRunning_ || !roots_.contains(root.id) || watchers_.contains(root.id))
        co_return;
    // The watcher's thread only posts: it never owns the engine, which would have to join it.
    const auto watcher = std::make_shared<FSEventWatcher>(
        std::vector{root.path},
        [engine = weak_from_this(), strand = strand_, id = root.id](std::vector<std::string> paths,
                                                                    bool rescan) {
            asio::post(strand, [engine, id, paths = std::move(paths), rescan] {
                if (const auto self = engine.lock())
                    self->eventsArrived(id, paths, rescan);
            });
        },
        source_);
    watchers_.emplace(root.id, watcher);
    std::exception_ptr failure;
    try {
        co_await offload([watcher] { watcher->start(); });
    } catch (...) {
        failure = std::current_exception();
    }
    if (!failure)
        co_return;
    if (const auto at = watchers_.find(root.id); at != watchers_.end() && at->second == watcher)
        watchers_.erase(at);
    std::rethrow_exception(failure);
}

asio::awaitable<void> SyncEngine::reconcileEnds() {
    boost::system::error_code woken;
    co_await reconcileEnd_.async_wait(asio::redirect_error(asio::use_awaitable, woken));
}

void SyncEngine::eventsArrived(const std::string& rootId, const std::vector<std::string>& paths,
                               bool rescan) {
    const auto isOurs = [this](const std::string& path) {
        return ownWrites_->isOwnWrite(path) || path.starts_with(container_);
    };
    if (watchers_.contains(rootId) && callsForReconcile(paths, rescan, isOurs))
        schedule(rootId, settleInterval_);
}

void SyncEngine::schedule(const std::string& rootId, Clock::Duration delay) {
    if (!isRunning_ || !roots_.contains(rootId))
        return;
    if (const auto pending = take(debounce_, rootId))
        pending->emit(asio::cancellation_type::terminal);
    const auto task = std::make_shared<asio::cancellation_signal>();
    debounce_.emplace(rootId, task);
    spawn(strand_, category, settle(weak_from_this(), clock_, rootId, delay, task), task);
}

void SyncEngine::cancelTasks(const std::string& rootId) {
    if (const auto pending = take(debounce_, rootId))
        pending->emit(asio::cancellation_type::terminal);
    const auto running = reconciling_.find(rootId);
    if (running == reconciling_.end())
        return;
    const auto cancellation = running->second.cancellation; // its end removes it from the map
    cancellation->emit(asio::cancellation_type::terminal);
}

asio::awaitable<void> SyncEngine::settle(std::weak_ptr<SyncEngine> engine, std::shared_ptr<Clock> clock,
                                         std::string rootId, Clock::Duration delay, Cancellation task) {
    co_await clock->sleep(delay);
    const auto self = engine.lock();
    if (self == nullptr)
        co_return;
    // A timer that has run out can no longer be cancelled, only replaced.
    const auto pending = self->debounce_.find(rootId);
    if (pending == self->debounce_.end() || pending->second != task)
        co_return;
    self->debounce_.erase(pending);
    co_await self->reconcileNow(self->roots_.at(rootId), task);
}

asio::awaitable<void> SyncEngine::reconcileNow(Root root, Cancellation task) {
    if (const auto running = reconciling_.find(root.id); running != reconciling_.end()) {
        running->second.again = true;
        co_return;
    }
    reconciling_.emplace(root.id, Running{std::move(task)});
    const Finally atEnd([&] { reconcileEnded(root.id); });
    try {
        co_await reconcile_(root);
        retryDelays_.erase(root.id);
    } catch (...) {
        retryLater(root.id);
        throw;
    }
}

// A change that came meanwhile is another try, and sooner; a reconcile that was cancelled has not failed.
void SyncEngine::retryLater(const std::string& rootId) {
    if (!isRunning_ || !roots_.contains(rootId) || debounce_.contains(rootId))
        return;
    auto& delay = retryDelays_.try_emplace(rootId, firstRetry / 2).first->second;
    delay = std::min<Clock::Duration>(delay * 2, lastRetry);
    schedule(rootId, delay);
}

void SyncEngine::reconcileEnded(const std::string& rootId) {
    const bool again = take(reconciling_, rootId).again;
    reconcileEnd_.cancel();
    if (again)
        schedule(rootId, Clock::Duration::zero());
}

} // namespace Korvane
