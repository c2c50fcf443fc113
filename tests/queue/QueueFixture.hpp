#pragma once

#include "KorvaneCore/queue/JobRunner.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/VirtualTime.hpp"

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <gmock/gmock.h>

namespace Korvane::Testing {

using State = TransferRecord::State;
using namespace std::chrono_literals;

inline UploadJob uploadJob(TransferOrigin origin = {}, std::string name = "a.txt") {
    UploadJob job;
    job.sourcePath = "/nowhere/" + name;
    job.name = std::move(name);
    job.clientFileId = "c";
    job.origin = std::move(origin);
    return job;
}

inline DownloadJob downloadJob(TransferOrigin origin = {}) {
    DownloadJob job;
    job.fileId = "f";
    job.destinationPath = "/nowhere/b.txt";
    job.origin = std::move(origin);
    return job;
}

inline JobRunner::Result resultOf(const TransferRecord& record) {
    const auto job = transferJob(record);
    if (const auto* upload = std::get_if<UploadJob>(&job))
        return TransferOutcome::Uploaded{*upload, {}};
    return TransferOutcome::Downloaded{std::get<DownloadJob>(job), {}, {}, {}};
}

/// Holds every run until the test ends it, or runs the test's script. No record and no path, asset or draft
/// ever runs twice at once here.
class ScriptedRunner final : public JobRunner {
public:
    using Script = std::function<asio::awaitable<Result>(TransferRun&)>;

    Script script;
    std::vector<std::string> started;
    std::vector<std::string> aborted;
    std::function<asio::awaitable<void>()> onAbort;

    /// Ends a run: with its job as a success, or with what it is to throw.
    void end(const std::string& id, std::exception_ptr error = nullptr) {
        auto& gate = gates_.at(id);
        gate->error = std::move(error);
        gate->open = true;
        gate->timer.cancel();
    }

    template <class Error>
    void fail(const std::string& id, Error error) {
        end(id, std::make_exception_ptr(std::move(error)));
    }

    [[nodiscard]] std::set<std::string> live() const {
        std::set<std::string> ids;
        for (const auto& [id, gate] : gates_)
            ids.insert(id);
        return ids;
    }

    asio::awaitable<Result> run(TransferRun& run) override {
        const auto id = run.record().id;
        started.push_back(id);
        const auto gate =
            std::make_shared<Gate>(asio::steady_timer(co_await asio::this_coro::executor, forever));
        if (const auto job = readableJob(run.record()); job && originOf(*job).namesOneThing())
            gate->origin = originOf(*job);
        for (const auto& [other, held] : gates_)
            EXPECT_FALSE(other == id || (gate->origin && held->origin == gate->origin)) << "two at once";
        gates_.insert_or_assign(id, gate);
        const std::shared_ptr<void> leave(nullptr, [this, id](void*) { gates_.erase(id); });
        if (script)
            co_return co_await script(run);
        boost::system::error_code woken;
        co_await gate->timer.async_wait(asio::redirect_error(asio::use_awaitable, woken));
        if (!gate->open)
            throw boost::system::system_error(woken);
        if (gate->error)
            std::rethrow_exception(gate->error);
        co_return resultOf(run.record());
    }

    asio::awaitable<void> abortUpload(std::string uploadId) override {
        aborted.push_back(uploadId);
        if (onAbort)
            co_await onAbort();
    }

private:
    static constexpr auto forever = asio::steady_timer::time_point::max();

    struct Gate {
        asio::steady_timer timer;
        std::optional<TransferOrigin> origin;
        std::exception_ptr error;
        bool open = false;
    };

    std::map<std::string, std::shared_ptr<Gate>> gates_;
};

/// A queue over an index of the test's own, in virtual time, on the test's thread.
struct QueueTest : VirtualTime, testing::Test {
    TemporaryFolder folder;
    std::filesystem::path url = folder / "index.sqlite";
    std::shared_ptr<LocalIndex> index = std::make_shared<LocalIndex>(url, clock);
    SQLiteDatabase tables{url};
    std::shared_ptr<ScriptedRunner> runner = std::make_shared<ScriptedRunner>();
    std::vector<TransferOutcome> outcomes;
    double jitter = 1;
    TransferQueue queue{context.get_executor(), index, runner, clock, [this] { return jitter; }};

    void SetUp() override {
        wait(queue.addOutcomeHandler([this](TransferOutcome outcome) -> asio::awaitable<void> {
            outcomes.push_back(std::move(outcome));
            co_return;
        }));
    }

    void TearDown() override {
        wait(queue.stop());
        wait(queue.finished());
        settle();
    }

    std::string upload(const std::string& id, UploadJob job = uploadJob()) {
        auto given = wait(queue.enqueueUpload(std::move(job), id));
        settle();
        return given;
    }

    void start() {
        wait(queue.start());
        settle();
    }

    /// The record's state; none when it is gone.
    std::optional<State> state(const std::string& id) {
        const auto record = index->transfer(id);
        return record ? std::optional(record->state) : std::nullopt;
    }

    /// Seconds until the record may run.
    double delay(const std::string& id) {
        return std::chrono::duration<double>(index->transfer(id)->nextAttempt - clock->now()).count();
    }
};

inline TransferOrigin syncOrigin(std::string path = "a.txt") {
    return TransferOrigin::Sync{"root", std::move(path)};
}

} // namespace Korvane::Testing
