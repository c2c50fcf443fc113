// What becomes of a run, and of what the user discards.
#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/Finally.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/Spawn.hpp"
#include "KorvaneCore/queue/QueueCore.hpp"
#include "KorvaneCore/queue/QueueRun.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/SQLiteError.hpp"

#include <system_error>
#include <utility>

namespace Korvane {

namespace {

/// Removes what may be gone already; a failure leaves the file, which is purged by age.
asio::awaitable<void> removeFile(std::filesystem::path file) {
    const auto error = co_await offload([file] {
        std::error_code code;
        std::filesystem::remove(file, code);
        return code;
    });
    if (error)
        Log::warning("queue", "could not remove a file that is no longer needed: " + error.message());
}

TransferJob jobOf(const JobRunner::Result& result) {
    if (const auto* uploaded = std::get_if<TransferOutcome::Uploaded>(&result))
        return uploaded->job;
    return std::get<TransferOutcome::Downloaded>(result).job;
}

TransferOutcome outcomeOf(JobRunner::Result result) {
    return std::visit([](auto& value) { return TransferOutcome{std::move(value)}; }, result);
}

} // namespace

asio::awaitable<void> QueueCore::settle(RunPointer run, std::exception_ptr error, JobRunner::Result result) {
    const auto self = shared_from_this();
    settling_.insert(run);
    try {
        if (error)
            co_await failed(run, error);
        else
            co_await succeeded(run, std::move(result));
    } catch (const std::exception& unexpected) {
        Log::error("queue", unexpected.what());
    }
    remove(run);
    settling_.erase(run);
    --unsettled_;
    settled_.cancel();
    if (error)
        schedulePassOverAll(); // its record may be the oldest that waits
    else
        schedulePass();
}

asio::awaitable<void> QueueCore::succeeded(RunPointer run, JobRunner::Result result) {
    const auto job = jobOf(result);
    const auto* upload = std::get_if<UploadJob>(&job);
    Verdict verdict{run->record(), false, {}};
    verdict.record.state = TransferRecord::State::done;
    verdict.record.lastError.reset();
    verdict.record.payload = transferPayload(job);
    // The record first: a run that starts again must find its source.
    if (upload != nullptr && upload->deleteSourceWhenDone)
        verdict.source = upload->sourcePath;
    const bool stored = run->isDetached() || store(verdict);
    if (!run->isDetached() && stored && !verdict.source.empty())
        co_await removeFile(verdict.source);
    remove(run);
    co_await deliver(outcomeOf(result));
    logActivity(verdict.record, result);
}

asio::awaitable<void> QueueCore::failed(RunPointer run, std::exception_ptr error) {
    using enum TransferRecord::State;
    using Failure = TransferRules::RunFailure;
    auto record = run->record();
    if (userCancelled_.contains(record.id)) {
        if (!run->isDetached())
            co_await discard(record);
        co_return;
    }
    const auto failure = TransferRules::runFailure(error, run->isCancelled());
    if (failure.verdict == Failure::Verdict::cancelled) {
        record.state = paused_ ? paused : pending;
    } else if (failure.verdict != Failure::Verdict::dropped) {
        ++record.attempts;
        record.lastError = failure.text;
        record.state = TransferRecord::State::failed;
    }
    if (failure.verdict == Failure::Verdict::retry) {
        const std::chrono::duration<double> delay(
            TransferRules::retryDelay(failure, record.attempts, jitter_()));
        record.state = pending;
        record.nextAttempt = clock_->now() + std::chrono::duration_cast<Clock::Time::duration>(delay);
    }
    if (!run->isDetached())
        store({record, failure.verdict == Failure::Verdict::dropped, {}});
    remove(run);
    if (failure.verdict == Failure::Verdict::dropped) {
        Log::warning("queue", "a transfer was given up: " + failure.text);
        co_await deliver({TransferOutcome::Dropped{record.id, run->origin(), failure.text}});
        const auto job = readableJob(record);
        co_await removeRemains(record, job ? sourceOf(*job) : "");
    } else if (failure.verdict == Failure::Verdict::failed)
        co_await deliver(
            {TransferOutcome::Failed{record.id, record.kind, run->origin(), failure.text, failure.apiError}});
}

void QueueCore::remove(const RunPointer& run) {
    const auto found = running_.find(run->record().id);
    if (found != running_.end() && found->second == run)
        running_.erase(found);
    run->end();
}

bool QueueCore::store(Verdict verdict) {
    try {
        write(verdict);
        return true;
    } catch (const SQLiteError& error) {
        // The row stays as it was until a later pass finds the index willing.
        Log::warning("queue", error.what());
        auto id = verdict.record.id;
        leftOver_.insert_or_assign(std::move(id), std::move(verdict));
        return false;
    }
}

void QueueCore::write(const Verdict& verdict) {
    if (verdict.isGone)
        index_->deleteTransfer(verdict.record.id);
    else
        index_->updateTransfer(verdict.record);
}

void QueueCore::storeLeftOver() {
    while (!leftOver_.empty()) {
        const auto first = leftOver_.begin();
        write(first->second);
        if (!first->second.source.empty())
            spawn(strand_, "queue", removeFile(first->second.source));
        leftOver_.erase(first);
    }
}

asio::awaitable<void> QueueCore::deliver(TransferOutcome outcome) {
    const auto handlers = outcomeHandlers_; // more may be added meanwhile
    for (const auto& [token, handler] : handlers) {
        try {
            co_await (*handler)(outcome);
        } catch (const std::exception& error) {
            Log::error("queue", error.what());
        } catch (...) {
            Log::error("queue", "an outcome handler threw something that is no exception");
        }
    }
}

void QueueCore::logActivity(const TransferRecord& record, const JobRunner::Result& result) {
    std::string kind = "upload";
    std::string title = "Uploaded";
    if (const auto* uploaded = std::get_if<TransferOutcome::Uploaded>(&result)) {
        if (uploaded->job.isConflictCopy)
            title = "Uploaded as conflicted copy";
    } else {
        const auto& movedAside = std::get<TransferOutcome::Downloaded>(result).movedAside;
        kind = "download";
        title = movedAside ? "Kept local changes as " + movedAside->filename().string() : "Downloaded";
    }
    index_->log(kind, title, record.title);
}

asio::awaitable<bool> QueueCore::cancel(std::string id) {
    const auto self = shared_from_this();
    if (!userCancelled_.insert(id).second)
        co_return false; // another cancel is at it
    const Finally unmark([&] { userCancelled_.erase(id); });
    const bool existed = index_->transfer(id).has_value();
    if (const auto found = running_.find(id); found != running_.end()) {
        const auto run = found->second;
        run->cancel();
        co_await run->ended();
    }
    if (leftOver_.contains(id))
        storeLeftOver();
    const auto record = index_->transfer(id);
    if (record && record->state != TransferRecord::State::done)
        co_await discard(*record);
    co_return existed && (!record || record->state != TransferRecord::State::done);
}

asio::awaitable<std::int64_t> QueueCore::cancelAll(bool onlyFailed) {
    using enum TransferRecord::State;
    constexpr int most = 1'000'000;
    const auto self = shared_from_this();
    std::int64_t discarded = 0;
    {
        ++discarding_;
        const Finally unmark([&] {
            --discarding_;
            schedulePass();
        });
        const auto states = onlyFailed ? std::vector{TransferRecord::State::failed}
                                       : std::vector{pending, running, TransferRecord::State::failed, paused};
        for (const auto& id : index_->transferIds(states, most)) {
            discarded += co_await cancel(id) ? 1 : 0;
            co_await yield();
        }
    }
    co_return discarded;
}

asio::awaitable<void> QueueCore::discard(TransferRecord record) {
    co_await removeRemains(record, {});
    store({std::move(record), true, {}});
}

asio::awaitable<void> QueueCore::removeRemains(TransferRecord record, std::string keptSource) {
    const auto self = shared_from_this();
    const auto job = readableJob(record);
    const auto* upload = job ? std::get_if<UploadJob>(&*job) : nullptr;
    const auto* download = job ? std::get_if<DownloadJob>(&*job) : nullptr;
    if (upload != nullptr && upload->uploadId) {
        try {
            co_await runner_->abortUpload(*upload->uploadId);
        } catch (const std::exception& error) {
            // The service ends sessions by itself.
            Log::warning("queue", error.what());
        }
    }
    if (upload != nullptr && upload->deleteSourceWhenDone && upload->sourcePath != keptSource)
        co_await removeFile(upload->sourcePath);
    if (download != nullptr && download->tempPath)
        co_await removeFile(*download->tempPath);
}

} // namespace Korvane
