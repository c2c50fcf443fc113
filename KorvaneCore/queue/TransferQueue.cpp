#include "KorvaneCore/queue/TransferQueue.hpp"

#include "KorvaneCore/platform/Strand.hpp"
#include "KorvaneCore/queue/QueueCore.hpp"

#include <fmt/format.h>

#include <memory>
#include <random>
#include <utility>

namespace Korvane {

namespace {

/// Runs `operation(core)` on the core's strand, for operations that do not suspend.
template <class Operation, class T = std::invoke_result_t<Operation, QueueCore&>>
asio::awaitable<T> call(const std::shared_ptr<QueueCore>& core, Operation operation) {
    return on<T>(core->strand(), [core, operation = std::move(operation)]() mutable -> asio::awaitable<T> {
        co_return operation(*core);
    });
}

} // namespace

TransferQueue::RetryLater::RetryLater(double seconds)
    : delay(seconds), description_(fmt::format("RetryLater(delay: {})", seconds)) {}

const char* TransferQueue::RetryLater::what() const noexcept {
    return description_.c_str();
}

TransferQueue::PermanentFailure::PermanentFailure(std::string text) : message(std::move(text)) {}

const char* TransferQueue::PermanentFailure::what() const noexcept {
    return message.c_str();
}

TransferQueue::DropReason::DropReason(std::string text) : message(std::move(text)) {}

const char* TransferQueue::DropReason::what() const noexcept {
    return message.c_str();
}

TransferQueue::TransferQueue(const asio::any_io_executor& executor, std::shared_ptr<LocalIndex> index,
                             std::shared_ptr<JobRunner> runner, std::shared_ptr<Clock> clock, Jitter jitter)
    : core_(std::make_shared<QueueCore>(executor, std::move(index), std::move(runner), std::move(clock),
                                        std::move(jitter))) {}

// Without memory for one posted handler the process ends here.
TransferQueue::~TransferQueue() { // NOLINT(bugprone-exception-escape)
    asio::post(core_->strand(), [core = core_] { core->stop(); });
}

TransferQueue::Jitter TransferQueue::systemJitter() {
    return [engine = std::mt19937_64(std::random_device()())]() mutable {
        return std::uniform_real_distribution<double>()(engine);
    };
}

asio::awaitable<int> TransferQueue::maxConcurrent() {
    return call(core_, [](const QueueCore& core) { return core.maxConcurrent(); });
}

asio::awaitable<void> TransferQueue::setMaxConcurrent(int count) {
    return call(core_, [count](QueueCore& core) { core.setMaxConcurrent(count); });
}

asio::awaitable<std::string> TransferQueue::addOutcomeHandler(OutcomeHandler handler) {
    return call(core_, [handler = std::move(handler)](QueueCore& core) mutable {
        return core.addOutcomeHandler(std::move(handler));
    });
}

asio::awaitable<void> TransferQueue::setOwnWriteHandler(OwnWriteHandler handler) {
    return call(core_, [handler = std::move(handler)](QueueCore& core) mutable {
        core.setOwnWriteHandler(std::move(handler));
    });
}

asio::awaitable<void> TransferQueue::setChangeHandler(ChangeHandler handler) {
    return call(core_, [handler = std::move(handler)](QueueCore& core) mutable {
        core.setChangeHandler(std::move(handler));
    });
}

asio::awaitable<void> TransferQueue::start() {
    return call(core_, [](QueueCore& core) { core.start(); });
}

asio::awaitable<void> TransferQueue::stop() {
    return call(core_, [](QueueCore& core) { core.stop(); });
}

asio::awaitable<void> TransferQueue::finished() {
    return on<void>(core_->strand(), [core = core_] { return core->finished(); });
}

asio::awaitable<void> TransferQueue::delivered() {
    return on<void>(core_->strand(), [core = core_] { return core->delivered(); });
}

asio::awaitable<bool> TransferQueue::isPaused() {
    return call(core_, [](const QueueCore& core) { return core.isPaused(); });
}

asio::awaitable<void> TransferQueue::setPaused(bool paused) {
    return call(core_, [paused](QueueCore& core) { core.setPaused(paused); });
}

asio::awaitable<void> TransferQueue::setExpensiveNetwork(bool expensive) {
    return call(core_, [expensive](QueueCore& core) { core.setExpensiveNetwork(expensive); });
}

asio::awaitable<void> TransferQueue::nudge() {
    return call(core_, [](QueueCore& core) { core.nudge(); });
}

asio::awaitable<void> TransferQueue::retryFailed() {
    return call(core_, [](QueueCore& core) { core.retryFailed(); });
}

asio::awaitable<void> TransferQueue::cancel(std::string id) {
    return on<void>(core_->strand(), [core = core_, id = std::move(id)]() -> asio::awaitable<void> {
        co_await core->cancel(id);
    });
}

asio::awaitable<std::int64_t> TransferQueue::cancelAll(bool onlyFailed) {
    return on<std::int64_t>(core_->strand(),
                            [core = core_, onlyFailed] { return core->cancelAll(onlyFailed); });
}

asio::awaitable<std::vector<TransferRecord>> TransferQueue::snapshot() {
    return call(core_, [](const QueueCore& core) { return core.snapshot(); });
}

asio::awaitable<TransferQueueStats> TransferQueue::stats() {
    return call(core_, [](const QueueCore& core) { return core.stats(); });
}

asio::awaitable<bool> TransferQueue::hasActiveJob(TransferOrigin origin) {
    return call(core_,
                [origin = std::move(origin)](const QueueCore& core) { return core.hasActiveJob(origin); });
}

asio::awaitable<std::map<TransferOrigin, TransferRecord::State>> TransferQueue::activeOrigins() {
    return call(core_, [](const QueueCore& core) { return core.activeOrigins(); });
}

asio::awaitable<std::string> TransferQueue::enqueueUpload(UploadJob job, std::string id) {
    return call(core_, [job = std::move(job), id = std::move(id)](QueueCore& core) mutable {
        return core.enqueueUpload(std::move(job), std::move(id));
    });
}

asio::awaitable<std::string> TransferQueue::enqueueDownload(DownloadJob job, std::string title,
                                                            std::int64_t size) {
    return call(core_, [job = std::move(job), title = std::move(title), size](QueueCore& core) mutable {
        return core.enqueueDownload(std::move(job), std::move(title), size);
    });
}

} // namespace Korvane
