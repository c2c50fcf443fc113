#pragma once

#include "KorvaneCore/platform/Strand.hpp"
#include "KorvaneCore/queue/JobRunner.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"
#include "KorvaneCore/queue/TransferRules.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"

#include <boost/asio/steady_timer.hpp>

#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Korvane {

class QueueRun;

/// The transfer queue's state and scheduler; see TransferQueue for what the operations do. Everything but
/// strand() is used on the strand. Runs, passes and the wake-up hold it, so it outlives its TransferQueue
/// until they have ended.
class QueueCore : public std::enable_shared_from_this<QueueCore> {
public:
    QueueCore(const asio::any_io_executor& executor, std::shared_ptr<LocalIndex> index,
              std::shared_ptr<JobRunner> runner, std::shared_ptr<Clock> clock, TransferQueue::Jitter jitter);

    [[nodiscard]] const Strand& strand() const noexcept { return strand_; }

    [[nodiscard]] int maxConcurrent() const noexcept { return maxConcurrent_; }

    void setMaxConcurrent(int count);
    std::string addOutcomeHandler(TransferQueue::OutcomeHandler handler);
    void setOwnWriteHandler(TransferQueue::OwnWriteHandler handler);
    void setChangeHandler(TransferQueue::ChangeHandler handler);

    void start();
    void stop();
    asio::awaitable<void> finished();
    asio::awaitable<void> delivered();

    [[nodiscard]] bool isPaused() const noexcept { return paused_; }

    void setPaused(bool paused);
    void setExpensiveNetwork(bool expensive);
    void nudge();
    void retryFailed();

    /// Gives whether the record was there and is gone.
    asio::awaitable<bool> cancel(std::string id);
    asio::awaitable<std::int64_t> cancelAll(bool onlyFailed);

    [[nodiscard]] std::vector<TransferRecord> snapshot() const;
    [[nodiscard]] TransferQueueStats stats() const;
    [[nodiscard]] bool hasActiveJob(const TransferOrigin& origin) const;
    [[nodiscard]] std::map<TransferOrigin, TransferRecord::State> activeOrigins() const;

    std::string enqueueUpload(UploadJob job, std::string id);
    std::string enqueueDownload(DownloadJob job, std::string title, std::int64_t size);

private:
    using RunPointer = std::shared_ptr<QueueRun>;

    /// What a run has come to, for the index.
    struct Verdict {
        TransferRecord record;
        bool isGone = false;          ///< the row is to be deleted
        std::filesystem::path source; ///< to be deleted once the record is stored; empty for none
    };

    // Passes over the waiting records (QueueCore.cpp).
    [[nodiscard]] bool mayLaunch() const noexcept;
    [[nodiscard]] std::size_t freeSlots() const noexcept;
    void schedulePass();

    /// schedulePass() after something that may concern any record, not only new ones.
    void schedulePassOverAll();
    asio::awaitable<void> pass();

    /// Gives whether nothing that is due was left unread.
    asio::awaitable<bool> fillSlots();
    [[nodiscard]] TransferRules::Situation situation() const;
    void launch(const TransferRules::Candidate& candidate);
    void noticeClockSetBack();
    void armWakeUp(bool sawEverythingDue);
    void cancelWakeUp();
    asio::awaitable<void> sleepThenPass(double seconds);
    asio::awaitable<void> yield();
    void enqueue(TransferRecord record, const TransferJob& job);

    // Results and discarding (QueueResults.cpp).
    asio::awaitable<void> settle(RunPointer run, std::exception_ptr error, JobRunner::Result result);
    asio::awaitable<void> succeeded(RunPointer run, JobRunner::Result result);
    asio::awaitable<void> failed(RunPointer run, std::exception_ptr error);
    void remove(const RunPointer& run);
    bool store(Verdict verdict);
    void write(const Verdict& verdict);
    void storeLeftOver();
    asio::awaitable<void> deliver(TransferOutcome outcome);
    void logActivity(const TransferRecord& record, const JobRunner::Result& result);
    asio::awaitable<void> discard(TransferRecord record);

    /// Ends the upload session of a record that is given up, and removes its files, but for that source.
    asio::awaitable<void> removeRemains(TransferRecord record, std::string keptSource);

    Strand strand_;
    std::shared_ptr<LocalIndex> index_;
    std::shared_ptr<JobRunner> runner_;
    std::shared_ptr<Clock> clock_;
    TransferQueue::Jitter jitter_;

    int maxConcurrent_ = TransferQueue::defaultMaxConcurrent;
    bool started_ = false;
    bool paused_ = false;
    bool expensiveNetwork_ = false;

    bool filling_ = false;                                  // a pass is under way
    bool refillRequested_ = false;                          // … and another one is wanted
    std::optional<LocalIndex::WaitingPosition> heldBackTo_; // up to here all wait for another network
    int discarding_ = 0;                                    // how many cancelAll() are under way
    std::shared_ptr<asio::cancellation_signal> wakeTask_;
    std::chrono::duration<double> clockAhead_; // the wall clock before the monotonic one

    std::map<std::string, RunPointer> running_; // with those that are ending after stop()
    std::size_t unsettled_ = 0;                 // runs whose outcome is not yet delivered, too
    std::set<RunPointer> settling_;             // those of them that have ended
    asio::steady_timer settled_;                // never expires; cancelled to wake
    std::set<std::string> userCancelled_;
    std::map<std::string, Verdict> leftOver_; // what the index did not take, by id

    std::map<std::string, std::shared_ptr<const TransferQueue::OutcomeHandler>> outcomeHandlers_;
    std::shared_ptr<TransferQueue::OwnWriteHandler> ownWriteHandler_;
    TransferQueue::ChangeHandler changeHandler_;
};

} // namespace Korvane
