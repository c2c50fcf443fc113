#pragma once

#include "KorvaneCore/platform/Async.hpp"
#include "KorvaneCore/queue/TransferJob.hpp"
#include "KorvaneCore/queue/TransferOutcome.hpp"
#include "KorvaneCore/storage/TransferRecord.hpp"

#include <boost/asio/any_io_executor.hpp>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Korvane {

class Clock;
class JobRunner;
class LocalIndex;
class QueueCore;

struct TransferQueueStats {
    std::int64_t pending = 0;
    std::int64_t running = 0;
    std::int64_t failed = 0;
    std::int64_t paused = 0;
    std::int64_t bytesDone = 0;  ///< of what has not failed
    std::int64_t bytesTotal = 0; ///< of what has not failed

    bool operator==(const TransferQueueStats&) const = default;
};

/// Where uploads and downloads wait, run, retry and finish. Its records are rows of the local index, so they
/// outlive the process; one process at a time runs a queue over an index.
///
/// Every operation may be awaited from any executor and runs on the queue's own strand; LocalIndex is called
/// there. Operations throw SQLiteError when the index refuses. The executor must run for as long as something
/// is awaited or has been started. Destroying the queue stops it; runs that are ending keep what they use.
class TransferQueue {
public:
    /// Thrown by a runner: try again after exactly this long.
    struct RetryLater : std::exception {
        explicit RetryLater(double seconds);
        [[nodiscard]] const char* what() const noexcept override;

        double delay; ///< seconds

    private:
        std::string description_;
    };

    /// Thrown by a runner: fail now, for the user to decide.
    struct PermanentFailure : std::exception {
        explicit PermanentFailure(std::string text);
        [[nodiscard]] const char* what() const noexcept override;

        std::string message;
    };

    /// Thrown by a runner: the job has become meaningless.
    struct DropReason : std::exception {
        explicit DropReason(std::string text);
        [[nodiscard]] const char* what() const noexcept override;

        std::string message;
    };

    /// All are called on the queue's strand. What one throws is logged and stops nothing.
    using OutcomeHandler = std::function<asio::awaitable<void>(TransferOutcome)>;
    using OwnWriteHandler = std::function<asio::awaitable<void>(std::filesystem::path, LocalStat)>;
    using ChangeHandler = std::function<void()>;

    /// Evenly spread numbers from 0 to 1, for the back-off. Called on the queue's strand.
    using Jitter = std::function<double()>;

    static constexpr int defaultMaxConcurrent = 3;

    TransferQueue(const asio::any_io_executor& executor, std::shared_ptr<LocalIndex> index,
                  std::shared_ptr<JobRunner> runner, std::shared_ptr<Clock> clock, Jitter jitter);
    TransferQueue(const TransferQueue&) = delete;
    TransferQueue& operator=(const TransferQueue&) = delete;
    ~TransferQueue();

    /// A Jitter seeded by the system.
    [[nodiscard]] static Jitter systemJitter();

    // Set-up.

    [[nodiscard]] asio::awaitable<int> maxConcurrent();
    asio::awaitable<void> setMaxConcurrent(int count); ///< what runs above it runs on

    /// Calls the handler with every outcome, each waiting for the one before. Gives a token of the handler.
    asio::awaitable<std::string> addOutcomeHandler(OutcomeHandler handler);

    /// Called with every file that a download has placed, before the download ends.
    asio::awaitable<void> setOwnWriteHandler(OwnWriteHandler handler);

    /// Called after every pass over the waiting records.
    asio::awaitable<void> setChangeHandler(ChangeHandler handler);

    // Running.

    /// Makes pending what an earlier process left running, forgets what was done more than a day ago, and
    /// begins to start transfers. While started only looks for what can start.
    asio::awaitable<void> start();

    /// Cancels what runs; its records go back to waiting. Does not wait for that: see finished().
    asio::awaitable<void> stop();

    /// Waits until no run is left, ending ones included.
    asio::awaitable<void> finished();

    /// Waits until every outcome that the records show by now has been handled. Not from an outcome handler.
    asio::awaitable<void> delivered();

    [[nodiscard]] asio::awaitable<bool> isPaused();

    /// Holds everything back, and cancels what runs, until set to false. Not kept by the queue.
    asio::awaitable<void> setPaused(bool paused);

    /// While expensive, uploads that require an unmetered network do not start; those that run go on.
    asio::awaitable<void> setExpensiveNetwork(bool expensive);

    /// Makes everything that waits for a retry due now.
    asio::awaitable<void> nudge();

    /// Makes failed records pending as new, without those that another one has superseded.
    asio::awaitable<void> retryFailed();

    /// Discards a record that is not done, with the copy, upload session or partial file it owns. One that
    /// runs is cancelled first; if it succeeds nevertheless, it stays as done.
    asio::awaitable<void> cancel(std::string id);

    /// cancel() of all, or of all failed ones. Gives how many were discarded; nothing starts meanwhile.
    asio::awaitable<std::int64_t> cancelAll(bool onlyFailed);

    // What is in it. Waiting, running, failed and paused records; done ones are not listed.

    [[nodiscard]] asio::awaitable<std::vector<TransferRecord>> snapshot(); ///< at most 500
    [[nodiscard]] asio::awaitable<TransferQueueStats> stats();             ///< of at most 10,000

    /// Whether a transfer of exactly this origin waits or runs, and the state of each origin's transfer; both
    /// look at 10,000 records at most.
    [[nodiscard]] asio::awaitable<bool> hasActiveJob(TransferOrigin origin);
    [[nodiscard]] asio::awaitable<std::map<TransferOrigin, TransferRecord::State>> activeOrigins();

    // New work. A record that waits or has failed is replaced by a newer one for the same synced path or
    // camera asset; one that runs finishes before the newer one starts.

    /// Stores the upload under `id`, which it gives.
    asio::awaitable<std::string> enqueueUpload(UploadJob job, std::string id);

    /// Stores the download under a new UUID, which it gives. `size` is in bytes.
    asio::awaitable<std::string> enqueueDownload(DownloadJob job, std::string title, std::int64_t size);

private:
    std::shared_ptr<QueueCore> core_;
};

} // namespace Korvane
