// The transfer queue over a real index: taking work in, passing over waiting records, and running jobs that
// do nothing.

#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/queue/JobRunner.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <benchmark/benchmark.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_future.hpp>
#include <sys/resource.h>

#include <future>

namespace {

using namespace Korvane;

TransferOrigin originOf(std::int64_t number) {
    return TransferOrigin::Sync{"8f14e45f-ceea-467f-9575-c1b2d8a1a5b0",
                                "Photos/2026/" + std::to_string(number)};
}

UploadJob job(std::int64_t number) {
    UploadJob job;
    job.sourcePath = "/home/someone/Photos/2026/" + std::to_string(number) + ".jpg";
    job.folderId = "a87ff679-a2f3-471d-8181-a67b7542122c";
    job.name = std::to_string(number) + ".jpg";
    job.mime = "image/jpeg";
    job.clientFileId = "e4da3b7f-bbce-4345-9777-2b0674a318d5";
    job.origin = originOf(number);
    return job;
}

/// Ends every run at once, or when told to.
class Runner final : public JobRunner {
public:
    bool hold = false;
    std::size_t started = 0;
    std::vector<std::shared_ptr<boost::asio::steady_timer>> held;

    asio::awaitable<Result> run(TransferRun& run) override {
        ++started;
        if (hold) {
            auto gate = std::make_shared<boost::asio::steady_timer>(
                co_await asio::this_coro::executor, boost::asio::steady_timer::time_point::max());
            held.push_back(gate);
            boost::system::error_code woken; // by endOne(), or as the benchmark ends
            co_await gate->async_wait(asio::redirect_error(asio::use_awaitable, woken));
        }
        co_return TransferOutcome::Uploaded{std::get<UploadJob>(transferJob(run.record())), {}};
    }

    asio::awaitable<void> abortUpload(std::string /*uploadId*/) override { co_return; }

    void endOne() {
        const auto gate = held.front();
        held.erase(held.begin());
        gate->cancel();
    }
};

struct Bench {
    Testing::TemporaryFolder folder;
    std::shared_ptr<LocalIndex> index = std::make_shared<LocalIndex>(folder / "index.sqlite");
    std::shared_ptr<Runner> runner = std::make_shared<Runner>();
    boost::asio::io_context context;
    TransferQueue queue{context.get_executor(), index, runner, systemClock(), [] { return 0.5; }};

    Bench() = default;
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    ~Bench() {
        try {
            runner->hold = false;
            wait(queue.stop());
            wait(queue.finished());
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
        }
    }

    template <class T>
    T wait(asio::awaitable<T> operation) {
        auto result = asio::co_spawn(context, std::move(operation), asio::use_future);
        until([&] { return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
        return result.get();
    }

    template <class Condition>
    void until(const Condition& holds) {
        context.restart();
        while (!holds())
            context.run_one();
    }

    /// Pending records, written past the queue in one transaction.
    void fill(std::int64_t count, bool requiresUnmetered = false) {
        SQLiteDatabase(index->url()).transaction([&](SQLiteDatabase& database) {
            for (std::int64_t number = 0; number < count; ++number) {
                auto upload = job(number);
                upload.requiresUnmetered = requiresUnmetered;
                database.run(
                    "INSERT INTO transfers(id,kind,state,payload,next_attempt,created_at,title,dedupe_key) "
                    "VALUES(?,0,0,?,?,?,?,?)",
                    std::to_string(number), transferPayload(upload), 1.7e9,
                    1.7e9 + static_cast<double>(number), upload.name, *upload.origin.dedupeKey());
            }
        });
    }
};

void enqueue(benchmark::State& state) {
    Bench bench;
    const auto before = state.range(0);
    bench.fill(before);
    auto number = before;
    for (auto _ : state) { // NOLINT(readability-identifier-naming)
        bench.wait(bench.queue.enqueueUpload(job(number), std::to_string(number)));
        ++number;
    }
    state.SetItemsProcessed(state.iterations());
}

/// One job ends and the next one starts: its result, its activity row, and a pass.
void endAndStartNext(benchmark::State& state) {
    Bench bench;
    bench.fill(state.range(0));
    bench.runner->hold = true;
    bench.wait(bench.queue.start());
    bench.until([&] { return bench.runner->started == 3; });
    for (auto _ : state) { // NOLINT(readability-identifier-naming)
        const auto next = bench.runner->started + 1;
        bench.runner->endOne();
        bench.until([&] { return bench.runner->started == next; });
    }
    if (bench.index->transferIds({TransferRecord::State::pending}, 1).empty())
        state.SkipWithError("the records did not suffice");
}

/// A pass that has nothing to start: the slots are taken, or the network holds everything back. The first
/// pass and those after a wake-up look at all that is held back, others only at what came later.
void pass(benchmark::State& state, bool heldBack, bool overAll) {
    Bench bench;
    bench.fill(state.range(0), heldBack);
    bench.runner->hold = true;
    std::size_t passes = 0;
    bench.wait(bench.queue.setExpensiveNetwork(heldBack));
    bench.wait(bench.queue.setChangeHandler([&] { ++passes; }));
    bench.wait(bench.queue.start());
    bench.until([&] { return passes > 0; });
    for (auto _ : state) { // NOLINT(readability-identifier-naming)
        const auto next = passes + 1;
        bench.wait(overAll ? bench.queue.start() : bench.queue.setMaxConcurrent(3));
        bench.until([&] { return passes >= next; });
    }
    if (heldBack == (bench.runner->started > 0))
        state.SkipWithError("not what was to be measured");
}

void runAll(benchmark::State& state) {
    for (auto _ : state) { // NOLINT(readability-identifier-naming)
        state.PauseTiming();
        Bench bench;
        bench.fill(state.range(0));
        std::int64_t ended = 0;
        bench.wait(bench.queue.addOutcomeHandler([&](const TransferOutcome&) -> asio::awaitable<void> {
            ++ended;
            co_return;
        }));
        state.ResumeTiming();
        bench.wait(bench.queue.start());
        bench.until([&] { return ended == state.range(0); });
        bench.wait(bench.queue.finished());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    state.counters["peakMiB"] = static_cast<double>(used.ru_maxrss) / 1024;
}

BENCHMARK(enqueue)->Arg(0)->Arg(100'000);
BENCHMARK(endAndStartNext)->Arg(100)->Arg(10'000)->Arg(100'000)->Iterations(90);
BENCHMARK_CAPTURE(pass, slotsTaken, false, true)->Arg(100)->Arg(10'000)->Arg(100'000);
BENCHMARK_CAPTURE(pass, heldBack, true, false)->Arg(100)->Arg(10'000)->Arg(100'000);
BENCHMARK_CAPTURE(pass, heldBackOverAll, true, true)->Arg(100)->Arg(10'000)->Arg(100'000);
BENCHMARK(runAll)->Arg(1'000)->Arg(100'000)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
