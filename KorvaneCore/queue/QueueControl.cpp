#include "KorvaneCore/queue/QueueControl.hpp"

#include "KorvaneCore/config/KRIdentifiers.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Spawn.hpp"
#include "KorvaneCore/platform/Strand.hpp"
#include "KorvaneCore/queue/QueueRequests.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"

#include <optional>
#include <string>
#include <utility>

namespace Korvane {

/// Everything but the constructor on the strand.
class QueueControl::State : public std::enable_shared_from_this<State> {
public:
    State(const asio::any_io_executor& executor, std::shared_ptr<TransferQueue> queue,
          std::shared_ptr<QueueRequests> requests, NotificationCenter notifications)
        : strand(asio::make_strand(executor)),
          queue_(std::move(queue)),
          requests_(std::move(requests)),
          notifications_(std::move(notifications)) {}

    const Strand strand;

    asio::awaitable<void> start() {
        observation_ = notifications_.observe(KRIdentifiers::queueChangedNotification,
                                              [weak = weak_from_this(), onto = strand] {
                                                  asio::post(onto, [weak] {
                                                      if (const auto self = weak.lock())
                                                          self->look();
                                                  });
                                              });
        co_await queue_->setChangeHandler(
            [center = notifications_]() mutable { center.post(KRIdentifiers::queueChangedNotification); });
        seen_ = requests_->latest();
        co_await applyMetered();
        // Even when not paused: an earlier process may have left paused records.
        co_await queue_->setPaused(requests_->isPaused());
        started_ = true;
        cancelling_ = true;
        co_await cancelRequested(); // before any of them could start
        co_await queue_->start();
        look(); // for what was asked meanwhile
    }

    asio::awaitable<void> stop() {
        started_ = false;
        observation_.reset();
        co_await queue_->setChangeHandler({});
        co_await queue_->stop();
        co_await queue_->finished();
    }

    void setNetworkMetered(bool metered) {
        networkMetered_ = metered;
        seen_.reset();
        look();
    }

private:
    /// One look at the requests at a time; what comes meanwhile makes another one.
    void look() {
        if (!started_)
            return;
        if (std::exchange(looking_, true))
            lookAgain_ = true;
        else
            spawn(strand, "queue", follow());
    }

    asio::awaitable<void> follow() {
        const auto self = shared_from_this();
        do {
            lookAgain_ = false;
            try {
                co_await followOnce();
            } catch (const std::exception& error) {
                seen_.reset();
                Log::error("queue", error.what());
            }
        } while (lookAgain_);
        looking_ = false;
    }

    asio::awaitable<void> followOnce() {
        auto latest = requests_->latest();
        if (seen_ == latest)
            co_return; // the queue's own post
        seen_ = std::move(latest);
        co_await applyMetered();
        const bool paused = requests_->isPaused();
        if (paused != co_await queue_->isPaused()) {
            co_await queue_->setPaused(paused);
            if (paused)
                spawn(strand, "queue", tellOnceRunsEnded());
        }
        spawnCancelling();
        if (started_)
            co_await queue_->start(); // looks for what may start now
    }

    /// A paused queue makes no pass that would tell.
    asio::awaitable<void> tellOnceRunsEnded() {
        const auto self = shared_from_this();
        co_await queue_->finished();
        notifications_.post(KRIdentifiers::queueChangedNotification);
    }

    asio::awaitable<void> applyMetered() {
        const auto said = requests_->metered();
        const bool metered =
            said == QueueRequests::Metered::automatic ? networkMetered_ : said == QueueRequests::Metered::yes;
        co_await queue_->setExpensiveNetwork(metered);
    }

    /// Beside the rest: ending upload sessions may take its time.
    void spawnCancelling() {
        if (!std::exchange(cancelling_, true))
            spawn(strand, "queue", cancelRequested());
    }

    asio::awaitable<void> cancelRequested() {
        const auto self = shared_from_this();
        try {
            for (auto ids = requests_->cancelled(); !ids.empty() && started_; ids = requests_->cancelled()) {
                for (const auto& id : ids) {
                    co_await queue_->cancel(id);
                    requests_->forgetCancelled(id);
                }
                notifications_.post(KRIdentifiers::queueChangedNotification);
            }
        } catch (const std::exception& error) {
            seen_.reset(); // the next look tries again
            Log::error("queue", error.what());
        }
        cancelling_ = false;
    }

    std::shared_ptr<TransferQueue> queue_;
    std::shared_ptr<QueueRequests> requests_;
    NotificationCenter notifications_;
    std::optional<NotificationCenter::Observation> observation_;
    std::optional<std::string> seen_; // the latest request that was followed
    bool networkMetered_ = false;
    bool started_ = false;
    bool looking_ = false;
    bool lookAgain_ = false;
    bool cancelling_ = false;
};

QueueControl::QueueControl(const asio::any_io_executor& executor, std::shared_ptr<TransferQueue> queue,
                           std::shared_ptr<QueueRequests> requests, NotificationCenter notifications)
    : state_(std::make_shared<State>(executor, std::move(queue), std::move(requests),
                                     std::move(notifications))) {}

QueueControl::~QueueControl() = default;

asio::awaitable<void> QueueControl::start() {
    return on<void>(state_->strand, [state = state_] { return state->start(); });
}

asio::awaitable<void> QueueControl::stop() {
    return on<void>(state_->strand, [state = state_] { return state->stop(); });
}

void QueueControl::setNetworkMetered(bool metered) {
    asio::post(state_->strand, [state = state_, metered] { state->setNetworkMetered(metered); });
}

} // namespace Korvane
