// A process with a queue of its own, for tests that kill or steer it. Prints a line for all that happens:
// "queued ID" once that is stored, "start ID ORIGIN" and "end ID" for each run, "idle" when nothing is left.
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/Spawn.hpp"
#include "KorvaneCore/queue/JobRunner.hpp"
#include "KorvaneCore/queue/QueueControl.hpp"
#include "KorvaneCore/queue/QueueRequests.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"

#include <boost/asio/io_context.hpp>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <string>

using namespace Korvane;

namespace {

/// In one write, so that a kill leaves whole lines.
void say(const std::string& line) {
    const auto text = line + "\n";
    if (::write(STDOUT_FILENO, text.data(), text.size()) < 0)
        std::abort();
}

struct Runner final : JobRunner {
    std::chrono::microseconds step{0}; ///< of the three of a run

    asio::awaitable<Result> run(TransferRun& run) override {
        auto job = std::get<UploadJob>(transferJob(run.record()));
        const auto* note = job.origin.as<TransferOrigin::Note>();
        const auto id = run.record().id;
        say("start " + id + " " + (note != nullptr ? note->draftId : "-"));
        for (std::int64_t i = 1; i <= 3; ++i) {
            co_await systemClock()->sleep(step);
            job.nameAttempt = i;
            run.save(job);
            run.setProgress(i, 3);
        }
        say("end " + id);
        co_return TransferOutcome::Uploaded{job, {}};
    }

    asio::awaitable<void> abortUpload(std::string /*uploadId*/) override { co_return; }
};

/// Adds jobs while others run, then waits for all to end.
asio::awaitable<void> work(TransferQueue& queue, std::string life, int jobs, std::uint64_t seed) {
    std::mt19937_64 engine(seed);
    co_await queue.start();
    for (int i = 0; i < jobs; ++i) {
        UploadJob job;
        if (engine() % 2 == 0)
            job.origin = TransferOrigin::Note{std::to_string(engine() % 2)};
        say("queued " + co_await queue.enqueueUpload(job, life + "." + std::to_string(i)));
        co_await systemClock()->sleep(std::chrono::microseconds(engine() % 500));
    }
    for (auto stats = co_await queue.stats(); stats.pending + stats.running > 0;
         stats = co_await queue.stats())
        co_await systemClock()->sleep(std::chrono::milliseconds(1));
    say("idle");
    co_await queue.stop();
}

/// Runs until the input ends, as people steer it; says what the queue tells others after each change.
asio::awaitable<void> serve(QueueControl& control) {
    co_await control.start();
    say("ready");
}

} // namespace

int main(int argc, char** argv) {
    asio::io_context context;
    const auto runner = std::make_shared<Runner>();
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "work" && argc == 6) {
        runner->step = std::chrono::microseconds(200);
        TransferQueue queue(context.get_executor(), std::make_shared<LocalIndex>(argv[2]), runner,
                            systemClock(), TransferQueue::systemJitter());
        spawn(context.get_executor(), "work",
              work(queue, argv[3], std::stoi(argv[4]), std::strtoull(argv[5], nullptr, 10)));
        context.run();
    }
    if (mode == "serve" && argc == 2) {
        runner->step = std::chrono::hours(1);
        const auto index = std::make_shared<LocalIndex>(SharedContainer::databaseURL());
        const NotificationCenter notifications(SharedContainer::notificationFolder());
        const auto queue = std::make_shared<TransferQueue>(context.get_executor(), index, runner,
                                                           systemClock(), TransferQueue::systemJitter());
        QueueControl control(context.get_executor(), queue,
                             std::make_shared<QueueRequests>(index, notifications), notifications);
        spawn(context.get_executor(), "serve", serve(control));
        context.run();
    }
    return 0;
}
