#pragma once

#include "KorvaneCore/platform/Async.hpp"
#include "KorvaneCore/queue/TransferJob.hpp"
#include "KorvaneCore/queue/TransferOutcome.hpp"

#include <cstdint>
#include <filesystem>
#include <string>
#include <variant>

namespace Korvane {

/// One run of a transfer, as its runner sees it. Used on the executor the runner was started on; lives until
/// the runner has returned.
class TransferRun {
public:
    TransferRun() = default;
    TransferRun(const TransferRun&) = delete;
    TransferRun& operator=(const TransferRun&) = delete;
    virtual ~TransferRun() = default;

    /// As it is stored now. Its payload may be unreadable (see transferJob).
    [[nodiscard]] virtual const TransferRecord& record() const noexcept = 0;

    /// Stores the job, so that a later run goes on from it. Throws SQLiteError.
    virtual void save(const TransferJob& job) = 0;

    /// In bytes. For those who watch; that the index does not take it is logged.
    virtual void setProgress(std::int64_t progress, std::int64_t total) = 0;

    /// To be called for every file the run has placed, before the run ends.
    virtual asio::awaitable<void> reportOwnWrite(std::filesystem::path path, LocalStat stat) = 0;
};

/// Performs transfers for the queue.
class JobRunner {
public:
    using Result = std::variant<TransferOutcome::Uploaded, TransferOutcome::Downloaded>;

    JobRunner() = default;
    JobRunner(const JobRunner&) = delete;
    JobRunner& operator=(const JobRunner&) = delete;
    virtual ~JobRunner() = default;

    /// Performs the job, on the queue's strand: blocking work goes elsewhere. Throws to steer the queue (see
    /// TransferQueue); an SQLiteError counts as RetryLater. A cancelled run ends soon. Jobs of several
    /// records run at once.
    virtual asio::awaitable<Result> run(TransferRun& run) = 0;

    /// Ends an upload session that nobody needs any more.
    virtual asio::awaitable<void> abortUpload(std::string uploadId) = 0;
};

} // namespace Korvane
