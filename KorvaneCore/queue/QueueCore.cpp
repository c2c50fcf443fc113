#include "KorvaneCore/queue/QueueCore.hpp"

#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Spawn.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneCore/queue/QueueRun.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/SQLiteError.hpp"

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/redirect_error.hpp>

#include <algorithm>
#include <utility>

namespace Korvane {

namespace {

constexpr std::chrono::seconds doneIsKeptFor{86'400};

std::chrono::duration<double> wallAheadOfMonotonic(const Clock& clock) {
    return std::chrono::duration<double>(clock.now().time_since_epoch()) -
           std::chrono::duration<double>(clock.monotonic().time_since_epoch());
}

/// Both live as long as the run.
asio::awaitable<JobRunner::Result> perform(std::shared_ptr<JobRunner> runner, std::shared_ptr<QueueRun> run) {
    co_return co_await runner->run(*run);
}

} // namespace

QueueCore::QueueCore(const asio::any_io_executor& executor, std::shared_ptr<LocalIndex> index,
                     std::shared_ptr<JobRunner> runner, std::shared_ptr<Clock> clock,
                     TransferQueue::Jitter jitter)
    : strand_(asio::make_strand(executor)),
      index_(std::move(index)),
      runner_(std::move(runner)),
      clock_(std::move(clock)),
      jitter_(std::move(jitter)),
      clockAhead_(wallAheadOfMonotonic(*clock_)),
      settled_(strand_, asio::steady_timer::time_point::max()),
      ownWriteHandler_(std::make_shared<TransferQueue::OwnWriteHandler>()) {}

void QueueCore::setMaxConcurrent(int count) {
    maxConcurrent_ = count;
    schedulePass();
}

std::string QueueCore::addOutcomeHandler(TransferQueue::OutcomeHandler handler) {
    auto token = newUUID();
    outcomeHandlers_.emplace(token,
                             std::make_shared<const TransferQueue::OutcomeHandler>(std::move(handler)));
    return token;
}

void QueueCore::setOwnWriteHandler(TransferQueue::OwnWriteHandler handler) {
    *ownWriteHandler_ = std::move(handler);
}

void QueueCore::setChangeHandler(TransferQueue::ChangeHandler handler) {
    changeHandler_ = std::move(handler);
}

void QueueCore::start() {
    if (!started_) {
        index_->resetRunningTransfers();
        index_->pruneDoneTransfers(doneIsKeptFor);
        index_->makeTransfersOfTheFutureDue();
        started_ = true;
    }
    schedulePassOverAll();
}

void QueueCore::stop() {
    started_ = false;
    for (const auto& [id, run] : running_)
        run->cancel();
    cancelWakeUp();
}

asio::awaitable<void> QueueCore::finished() {
    while (unsettled_ > 0) {
        boost::system::error_code woken;
        co_await settled_.async_wait(asio::redirect_error(asio::use_awaitable, woken));
    }
}

asio::awaitable<void> QueueCore::delivered() {
    const auto ended = settling_;
    while (std::ranges::any_of(ended, [this](const auto& run) { return settling_.contains(run); })) {
        boost::system::error_code woken;
        co_await settled_.async_wait(asio::redirect_error(asio::use_awaitable, woken));
        const auto state = co_await asio::this_coro::cancellation_state;
        if (state.cancelled() != asio::cancellation_type::none)
            throw boost::system::system_error(asio::error::operation_aborted);
    }
}

void QueueCore::setPaused(bool paused) {
    paused_ = paused;
    if (paused) {
        for (const auto& [id, run] : running_)
            run->cancel();
    }
    index_->setTransfersPaused(paused);
    schedulePassOverAll();
}

void QueueCore::setExpensiveNetwork(bool expensive) {
    const bool better = expensiveNetwork_ && !expensive;
    expensiveNetwork_ = expensive;
    if (better)
        schedulePassOverAll();
}

void QueueCore::nudge() {
    index_->makeTransfersDue();
    schedulePassOverAll();
}

void QueueCore::retryFailed() {
    index_->retryFailedTransfers();
    schedulePassOverAll();
}

std::string QueueCore::enqueueUpload(UploadJob job, std::string id) {
    TransferRecord record;
    record.id = id;
    record.kind = TransferRecord::Kind::upload;
    record.total = job.plainSize.value_or(0);
    record.title = job.name;
    enqueue(std::move(record), std::move(job));
    return id;
}

std::string QueueCore::enqueueDownload(DownloadJob job, std::string title, std::int64_t size) {
    TransferRecord record;
    record.id = newUUID();
    record.kind = TransferRecord::Kind::download;
    record.total = size;
    record.title = std::move(title);
    auto id = record.id;
    enqueue(std::move(record), std::move(job));
    return id;
}

void QueueCore::enqueue(TransferRecord record, const TransferJob& job) {
    record.state = paused_ ? TransferRecord::State::paused : TransferRecord::State::pending;
    record.nextAttempt = record.createdAt = clock_->now();
    record.payload = transferPayload(job);
    const auto key = originOf(job).dedupeKey();
    const auto replaced = key ? index_->replaceableTransfers(*key) : std::vector<TransferRecord>();
    index_->insertTransfer(record, key, LocalIndex::WhileRunning::insertWithoutKey);
    for (const auto& old : replaced)
        spawn(strand_, "queue", removeRemains(old, sourceOf(job)));
    // Under the id of a record that ran before, the new one stands; what the old one comes to is not for it.
    leftOver_.erase(record.id);
    if (const auto old = running_.find(record.id); old != running_.end())
        old->second->detach();
    schedulePass();
}

bool QueueCore::mayLaunch() const noexcept {
    return started_ && !paused_ && discarding_ == 0;
}

std::size_t QueueCore::freeSlots() const noexcept {
    const auto allowed = static_cast<std::size_t>(std::max(maxConcurrent_, 0));
    return allowed > running_.size() ? allowed - running_.size() : 0;
}

void QueueCore::schedulePass() {
    if (!mayLaunch())
        return;
    if (filling_) {
        refillRequested_ = true;
        return;
    }
    filling_ = true;
    spawn(strand_, "queue", pass());
}

void QueueCore::schedulePassOverAll() {
    heldBackTo_.reset();
    schedulePass();
}

asio::awaitable<void> QueueCore::pass() {
    const auto self = shared_from_this();
    bool sawEverythingDue = false;
    do {
        refillRequested_ = false;
        // Requests that come together make one pass, and other work on the strand has its turn.
        co_await yield();
        sawEverythingDue = co_await fillSlots();
    } while (refillRequested_ && mayLaunch());
    filling_ = false;
    refillRequested_ = false;
    try {
        if (changeHandler_)
            changeHandler_();
    } catch (const std::exception& error) {
        Log::error("queue", error.what());
    }
    armWakeUp(sawEverythingDue);
}

asio::awaitable<bool> QueueCore::fillSlots() {
    constexpr std::size_t skippable = 20;
    try {
        storeLeftOver();
        noticeClockSetBack();
        auto after = heldBackTo_;
        bool onlyHeldBack = true;
        while (mayLaunch() && freeSlots() > 0) {
            const auto limit = freeSlots() + skippable;
            const auto due = index_->runnablePage(static_cast<std::int64_t>(limit), clock_->now(), after);
            const auto selection = TransferRules::candidates(due.records, situation());
            for (const auto& candidate : selection.chosen)
                launch(candidate);
            if (onlyHeldBack && selection.heldBack > 0)
                heldBackTo_ = due.positions[selection.heldBack - 1];
            onlyHeldBack = onlyHeldBack && selection.heldBack == due.records.size();
            if (due.records.size() < limit && selection.seen == due.records.size())
                co_return true;
            after = due.positions.at(selection.seen - 1);
            co_await yield();
        }
    } catch (const std::exception& error) {
        Log::error("queue", error.what());
    }
    co_return false;
}

TransferRules::Situation QueueCore::situation() const {
    TransferRules::Situation situation;
    situation.freeSlots = freeSlots();
    situation.expensiveNetwork = expensiveNetwork_;
    situation.isTaken = [this](const std::string& id) {
        return running_.contains(id) || userCancelled_.contains(id) || leftOver_.contains(id);
    };
    for (const auto& [id, run] : running_) {
        if (const auto& origin = run->origin())
            situation.running.push_back(*origin);
    }
    return situation;
}

void QueueCore::launch(const TransferRules::Candidate& candidate) {
    auto record = index_->takeTransfer(candidate.id);
    if (!record)
        return;
    auto run =
        std::make_shared<QueueRun>(strand_, index_, ownWriteHandler_, std::move(*record), candidate.origin);
    running_.emplace(candidate.id, run);
    ++unsettled_;
    auto ended = [self = shared_from_this(), run](std::exception_ptr error, JobRunner::Result result) {
        spawn(self->strand_, "queue", self->settle(run, std::move(error), std::move(result)));
    };
    asio::co_spawn(strand_, perform(runner_, run),
                   asio::bind_cancellation_slot(run->slot(), asio::bind_executor(strand_, std::move(ended))));
}

void QueueCore::noticeClockSetBack() {
    constexpr std::chrono::seconds tolerance{2};
    const auto before = std::exchange(clockAhead_, wallAheadOfMonotonic(*clock_));
    if (clockAhead_ >= before - tolerance)
        return;
    Log::info("queue", "the clock was set back; waiting times move with it");
    index_->delayTransfers(clock_->now(), clockAhead_ - before);
    heldBackTo_.reset();
}

void QueueCore::armWakeUp(bool sawEverythingDue) {
    cancelWakeUp();
    if (!started_)
        return;
    const auto now = clock_->now();
    std::optional<TransferRecord::Date> next;
    try {
        // What was seen and passed over waits for something other than time.
        next = index_->nextTransferWakeup(sawEverythingDue ? std::optional(now) : std::nullopt);
    } catch (const std::exception& error) {
        Log::error("queue", error.what());
    }
    wakeTask_ = std::make_shared<asio::cancellation_signal>();
    asio::co_spawn(
        strand_, sleepThenPass(TransferRules::wakeUpDelay(now, next)),
        asio::bind_cancellation_slot(wakeTask_->slot(), [signal = wakeTask_, self = shared_from_this()](
                                                            const std::exception_ptr& /*aborted*/) {}));
}

void QueueCore::cancelWakeUp() {
    if (const auto task = std::exchange(wakeTask_, nullptr))
        task->emit(asio::cancellation_type::terminal);
}

asio::awaitable<void> QueueCore::sleepThenPass(double seconds) {
    co_await clock_->sleep(
        std::chrono::duration_cast<Clock::Duration>(std::chrono::duration<double>(seconds)));
    wakeTask_ = nullptr; // this one, which must not cancel itself
    schedulePassOverAll();
}

asio::awaitable<void> QueueCore::yield() {
    co_await asio::post(strand_, asio::use_awaitable);
}

std::vector<TransferRecord> QueueCore::snapshot() const {
    using enum TransferRecord::State;
    constexpr int most = 500;
    return index_->transfers({{pending, running, failed, paused}}, most);
}

namespace {

constexpr int mostSummed = 10'000;

} // namespace

TransferQueueStats QueueCore::stats() const {
    using enum TransferRecord::State;
    TransferQueueStats stats;
    for (const auto& record : index_->transfers({{pending, running, failed, paused}}, mostSummed)) {
        stats.pending += record.state == pending ? 1 : 0;
        stats.running += record.state == running ? 1 : 0;
        stats.failed += record.state == failed ? 1 : 0;
        stats.paused += record.state == paused ? 1 : 0;
        if (record.state == failed)
            continue;
        stats.bytesDone += record.progress;
        stats.bytesTotal += record.total;
    }
    return stats;
}

bool QueueCore::hasActiveJob(const TransferOrigin& origin) const {
    using enum TransferRecord::State;
    return std::ranges::any_of(index_->transfers({{pending, running, paused}}, mostSummed),
                               [&](const TransferRecord& record) {
                                   const auto job = readableJob(record);
                                   return job && originOf(*job) == origin;
                               });
}

std::map<TransferOrigin, TransferRecord::State> QueueCore::activeOrigins() const {
    using enum TransferRecord::State;
    // Of several transfers of one origin the most active one counts: later ones overwrite.
    std::map<TransferOrigin, TransferRecord::State> origins;
    auto records = index_->transfers({{pending, running, failed, paused}}, mostSummed);
    for (const auto state : {failed, paused, pending, running}) {
        for (const auto& record : records) {
            if (const auto job = record.state == state ? readableJob(record) : std::nullopt)
                origins.insert_or_assign(originOf(*job), state);
        }
    }
    return origins;
}

} // namespace Korvane
