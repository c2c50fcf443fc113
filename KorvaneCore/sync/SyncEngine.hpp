#pragma once

#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/Strand.hpp"
#include "KorvaneCore/sync/FSEventWatcher.hpp"
#include "KorvaneCore/sync/OwnWriteTracker.hpp"

#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/steady_timer.hpp>

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace Korvane {

/// Follows the sync roots and has one reconciled when it has changed and come to rest.
///
/// Suspending: its state lives on a strand, and every operation may be awaited from any executor. Held by
/// shared_ptr. The executor's threads must run until stop() has returned, or the engine is gone.
class SyncEngine : public std::enable_shared_from_this<SyncEngine> {
public:
    struct Root {
        std::string id;
        std::string path; ///< an absolute folder
    };

    /// Brings a root and the cloud in line. Awaited on the engine's strand, for one root never twice at a
    /// time; cancelled by stop() and by removeRoot(), which it must not await itself. What it throws is
    /// logged, and the root reconciled again later: after `firstRetry`, then each time after twice as long,
    /// up to `lastRetry`, until it succeeds.
    using Reconcile = std::function<asio::awaitable<void>(Root root)>;

    /// How long, in seconds, an event is taken for the echo of the engine's own write.
    static constexpr double ownWriteWindow = 5;

    static constexpr std::chrono::seconds firstRetry{10};
    static constexpr std::chrono::seconds lastRetry{600};

    /// `settleInterval`: how long a root must be at rest after a change before it is reconciled.
    SyncEngine(const asio::any_io_executor& executor, std::shared_ptr<Clock> clock,
               Clock::Duration settleInterval, Reconcile reconcile,
               FileEventSource source = openFileEventStream);

    /// Watches all roots from now on. Throws std::system_error when the system has no descriptor or thread
    /// left; the engine is stopped then.
    asio::awaitable<void> start();

    /// Ends watching and pending settle times, cancels running reconciles and waits for their end. The roots
    /// stay for the next start().
    asio::awaitable<void> stop();

    /// Adds a root, and watches it if the engine runs. One with the same id is replaced. Throws as start()
    /// does; the root is then not added.
    asio::awaitable<void> addRoot(Root root);

    /// Ends all there is for the root, as stop() does for all of them.
    asio::awaitable<void> removeRoot(std::string rootId);

    /// Reconciles the root after `delay`, instead of at the time planned before. A root that is being
    /// reconciled then is reconciled once more afterwards. Nothing happens for a root not known, or while the
    /// engine is stopped.
    asio::awaitable<void> scheduleReconcile(std::string rootId, Clock::Duration delay);

    /// Where whoever writes or removes something below a root says so. Callable from any thread.
    [[nodiscard]] std::shared_ptr<OwnWriteTracker> ownWrites() const { return ownWrites_; }

private:
    using Cancellation = std::shared_ptr<asio::cancellation_signal>;

    struct Running {
        Cancellation cancellation;
        bool again = false;
    };

    asio::awaitable<void> startOnStrand();
    asio::awaitable<void> stopOnStrand();
    asio::awaitable<void> addOnStrand(Root root);
    asio::awaitable<void> removeOnStrand(std::string rootId);
    asio::awaitable<void> scheduleOnStrand(std::string rootId, Clock::Duration delay);
    asio::awaitable<void> watch(Root root);
    asio::awaitable<void> reconcileEnds();

    void eventsArrived(const std::string& rootId, const std::vector<std::string>& paths, bool rescan);
    void schedule(const std::string& rootId, Clock::Duration delay);
    void cancelTasks(const std::string& rootId);
    void retryLater(const std::string& rootId);

    static asio::awaitable<void> settle(std::weak_ptr<SyncEngine> engine, std::shared_ptr<Clock> clock,
                                        std::string rootId, Clock::Duration delay, Cancellation task);
    asio::awaitable<void> reconcileNow(Root root, Cancellation task);
    void reconcileEnded(const std::string& rootId);

    const Strand strand_;
    const std::shared_ptr<Clock> clock_;
    const Clock::Duration settleInterval_;
    const Reconcile reconcile_;
    const FileEventSource source_;
    const std::string container_; ///< what changes in it is never synced
    const std::shared_ptr<OwnWriteTracker> ownWrites_;

    // On the strand, by root id:
    bool isRunning_ = false;
    std::map<std::string, Root> roots_;
    std::map<std::string, std::shared_ptr<FSEventWatcher>> watchers_;
    std::map<std::string, Cancellation> debounce_; // waiting for the root to settle
    std::map<std::string, Running> reconciling_;
    std::map<std::string, Clock::Duration> retryDelays_; // of roots whose last reconcile failed
    asio::steady_timer reconcileEnd_;                    // never expires; cancelled when one has ended
};

} // namespace Korvane
