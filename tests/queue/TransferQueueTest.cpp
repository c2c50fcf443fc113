// The queue over a real index, with scripted runs, in virtual time.
#include "KorvaneCore/api/APIError.hpp"
#include "tests/queue/QueueFixture.hpp"

namespace Korvane::Testing {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

struct TransferQueueTest : QueueTest {
    void insert(const std::string& id, State state, TransferRecord::Date createdAt,
                const std::optional<std::string>& key = {}, std::vector<std::uint8_t> payload = {'{', '}'}) {
        TransferRecord record;
        record.id = id;
        record.state = state;
        record.payload = std::move(payload);
        record.attempts = 3;
        record.nextAttempt = record.createdAt = createdAt;
        index->insertTransfer(record, key);
    }
};

TEST_F(TransferQueueTest, EveryTransitionOfARecord) {
    struct Row {
        std::string name;
        State from;
        std::function<void()> event;
        std::optional<State> to;
    };

    const auto newer = [this] { upload("newer", uploadJob(syncOrigin())); };
    const auto pause = [this] { wait(queue.setPaused(true)); };
    const auto cancel = [this] { wait(queue.cancel("x")); };
    const auto cancelAll = [this] { EXPECT_EQ(wait(queue.cancelAll(false)), 1); };
    const auto fails = [this](const auto& error) { runner->fail("x", error); };
    const Row rows[] = {
        {"launched", State::pending, [this] { start(); }, State::running},
        {"paused", State::pending, pause, State::paused},
        {"resumed", State::paused, [this] { wait(queue.setPaused(false)); }, State::pending},
        {"succeeds", State::running, [this] { runner->end("x"); }, State::done},
        {"fails for now", State::running, [&] { fails(APIError(APIError::Server{503, "", {}})); },
         State::pending},
        {"fails for good", State::running, [&] { fails(APIError(APIError::NotFound{})); }, State::failed},
        {"paused while running", State::running, pause, State::paused},
        {"stopped while running", State::running, [this] { wait(queue.stop()); }, State::pending},
        {"stopped while pausing", State::running,
         [&] {
             pause();
             wait(queue.stop());
         },
         State::paused},
        {"dropped", State::running, [&] { fails(TransferQueue::DropReason("")); }, {}},
        {"cancelled while running", State::running, cancel, {}},
        {"all cancelled while running", State::running, cancelAll, {}},
        {"newer one while pending", State::pending, newer, {}},
        {"newer one while failed", State::failed, newer, {}},
        {"newer one while paused", State::paused, newer, {}},
        {"newer one while running", State::running, newer, State::running},
        {"retried", State::failed, [this] { wait(queue.retryFailed()); }, State::pending},
        {"cancelled while pending", State::pending, cancel, {}},
        {"cancelled while failed", State::failed, cancel, {}},
        {"cancelled while paused", State::paused, cancel, {}},
        {"all cancelled while pending", State::pending, cancelAll, {}},
        {"all cancelled while paused", State::paused, cancelAll, {}},
        {"failed ones cancelled", State::failed, [this] { EXPECT_EQ(wait(queue.cancelAll(true)), 1); }, {}},
        {"failed ones cancelled around it", State::running,
         [this] { EXPECT_EQ(wait(queue.cancelAll(true)), 0); }, State::running},
        {"cancelled when done", State::done, cancel, State::done},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        index->reset();
        upload("x", uploadJob(syncOrigin()));
        if (row.from == State::running) {
            start();
        } else {
            auto record = *index->transfer("x");
            record.state = row.from;
            index->updateTransfer(record);
        }
        ASSERT_EQ(state("x"), row.from);
        row.event();
        settle();
        EXPECT_EQ(state("x"), row.to);
        wait(queue.stop());
        wait(queue.finished());
        wait(queue.setPaused(false));
    }
}

TEST_F(TransferQueueTest, StartRepairsWhatAnEarlierProcessLeftAndForgetsWhatIsOld) {
    insert("running", State::running, clock->now());
    insert("old", State::done, clock->now() - 86'401s);
    insert("young", State::done, clock->now() - 86'399s);
    wait(queue.setPaused(true));
    start();
    EXPECT_EQ(state("running"), State::pending);
    EXPECT_FALSE(state("old"));
    EXPECT_TRUE(state("young"));
    EXPECT_THAT(runner->started, IsEmpty());
}

TEST_F(TransferQueueTest, StartsTheOldestFirstAndThreeAtOnce) {
    for (const auto* id : {"j", "i", "h", "g", "f", "e", "d", "c", "b", "a"}) {
        upload(id);
        clock->advance(1ms);
    }
    start();
    EXPECT_THAT(runner->started, ElementsAre("j", "i", "h"));
    runner->end("i");
    settle();
    EXPECT_THAT(runner->started, ElementsAre("j", "i", "h", "g"));
    wait(queue.setMaxConcurrent(5));
    settle();
    EXPECT_THAT(runner->live(), UnorderedElementsAre("j", "h", "g", "f", "e"));
    wait(queue.setMaxConcurrent(0));
    for (const auto& id : runner->live())
        runner->end(id);
    settle();
    EXPECT_THAT(runner->live(), IsEmpty());
}

TEST_F(TransferQueueTest, ANewerCopyRunsAfterTheOneThatRuns) {
    start();
    upload("first", uploadJob(syncOrigin()));
    upload("second", uploadJob(syncOrigin()));
    upload("other", uploadJob(syncOrigin("b.txt")));
    upload("third", uploadJob(syncOrigin()));
    EXPECT_THAT(runner->live(), UnorderedElementsAre("first", "other"));
    EXPECT_EQ(tables.query("SELECT id FROM transfers WHERE dedupe_key='sync:root:a.txt'").size(), 1U);
    runner->end("first");
    settle();
    EXPECT_THAT(runner->live(), UnorderedElementsAre("second", "other"));
    runner->end("second");
    settle();
    EXPECT_THAT(runner->live(), UnorderedElementsAre("third", "other"));
}

TEST_F(TransferQueueTest, UnderAnIdThatRunsTheNewRecordStandsWhateverTheOldOneComesTo) {
    start();
    upload("x");
    auto job = uploadJob({}, "new.txt");
    upload("x", job);
    runner->end("x");
    settle();
    EXPECT_EQ(runner->started.size(), 2U);
    EXPECT_EQ(transferJob(*index->transfer("x")), TransferJob(job));
    EXPECT_EQ(state("x"), State::running);
}

TEST_F(TransferQueueTest, AMeteredNetworkHoldsBackOnlyWhatAsksForIt) {
    auto held = uploadJob();
    held.requiresUnmetered = true;
    wait(queue.setExpensiveNetwork(true));
    start();
    for (int i = 0; i < 60; ++i)
        upload("held" + std::to_string(i), held);
    advance(1ms);
    upload("free");
    wait(queue.enqueueDownload(downloadJob(), "b.txt", 7));
    settle();
    EXPECT_EQ(runner->live().size(), 2U);
    EXPECT_EQ(state("held0"), State::pending);
    // What is held back does not wake the queue again and again.
    int passes = 0;
    wait(queue.setChangeHandler([&] { ++passes; }));
    advance(59s);
    EXPECT_EQ(passes, 0);
    advance(1s);
    EXPECT_EQ(passes, 1);
    wait(queue.setExpensiveNetwork(false));
    settle();
    EXPECT_EQ(state("held0"), State::running);
    wait(queue.setExpensiveNetwork(true));
    settle();
    EXPECT_EQ(state("held0"), State::running);
}

TEST_F(TransferQueueTest, RetriesComeWhenTheyAreDue) {
    start();
    upload("x");
    jitter = 0;
    runner->fail("x", APIError(APIError::Server{503, "", {}}));
    settle();
    EXPECT_NEAR(delay("x"), 2.8, 0.001);
    EXPECT_EQ(index->transfer("x")->attempts, 1);
    EXPECT_TRUE(index->transfer("x")->lastError);
    advance(2700ms);
    EXPECT_THAT(runner->live(), IsEmpty());
    advance(300ms);
    runner->fail("x", APIError(APIError::RateLimited{1200}));
    settle();
    EXPECT_NEAR(delay("x"), 1200, 0.001);
    int passes = 0;
    wait(queue.setChangeHandler([&] { ++passes; }));
    advance(299s);
    EXPECT_EQ(passes, 0);
    advance(1s);
    EXPECT_EQ(passes, 1);
    wait(queue.nudge());
    settle();
    EXPECT_THAT(runner->live(), ElementsAre("x"));
    EXPECT_EQ(index->transfer("x")->attempts, 2);
    EXPECT_THAT(outcomes, IsEmpty());
}

TEST_F(TransferQueueTest, RetryFailedKeepsTheNewestOfAKeyAsNew) {
    insert("older", State::failed, clock->now() - 2s);
    insert("newer", State::failed, clock->now() - 1s);
    tables.run("UPDATE transfers SET dedupe_key='k', last_error='e'");
    wait(queue.retryFailed());
    EXPECT_FALSE(state("older"));
    EXPECT_EQ(index->transfer("newer")->attempts, 0);
    EXPECT_FALSE(index->transfer("newer")->lastError);
}

TEST_F(TransferQueueTest, TellsWhatBecameOfEachJobAndLogsIt) {
    runner->script = [](TransferRun& run) -> asio::awaitable<JobRunner::Result> {
        const auto& id = run.record().id;
        if (id == "fails")
            throw APIError(APIError::NotFound{});
        if (id == "drops")
            throw TransferQueue::DropReason("No use");
        auto result = resultOf(run.record());
        if (auto* download = std::get_if<TransferOutcome::Downloaded>(&result)) {
            co_await run.reportOwnWrite("/nowhere/b.txt", LocalStat{5, 1, 2, false});
            download->movedAside = "/nowhere/b (1).txt";
        } else {
            std::get<TransferOutcome::Uploaded>(result).job.isConflictCopy = id == "conflict";
        }
        co_return result;
    };
    std::vector<std::pair<std::filesystem::path, std::int64_t>> ownWrites;
    wait(queue.setOwnWriteHandler([&](std::filesystem::path path, LocalStat stat) -> asio::awaitable<void> {
        ownWrites.emplace_back(std::move(path), stat.size);
        throw std::runtime_error("not the job's fault");
        co_return;
    }));
    wait(queue.addOutcomeHandler([](TransferOutcome) -> asio::awaitable<void> {
        throw 42; // neither this nor that
        co_return;
    }));
    auto own = uploadJob({}, "own.txt");
    own.deleteSourceWhenDone = true;
    own.sourcePath = folder / "own.txt";
    writeFile(own.sourcePath, "bytes");
    start();
    upload("own", own);
    while (outcomes.empty())
        context.run_one();
    for (const auto* id : {"conflict", "fails", "drops"}) {
        upload(id);
        advance(1ms);
    }
    wait(queue.enqueueDownload(downloadJob(syncOrigin()), "b.txt", 7));
    settle();

    ASSERT_EQ(outcomes.size(), 5U);
    EXPECT_FALSE(std::filesystem::exists(own.sourcePath));
    EXPECT_EQ(outcomes[0].as<TransferOutcome::Uploaded>()->job.name, "own.txt");
    EXPECT_TRUE(outcomes[1].as<TransferOutcome::Uploaded>()->job.isConflictCopy);
    const auto* failed = outcomes[2].as<TransferOutcome::Failed>();
    EXPECT_EQ(failed->id, "fails");
    EXPECT_EQ(failed->apiError, APIError(APIError::NotFound{}));
    EXPECT_EQ(failed->error, failed->apiError->what());
    EXPECT_EQ(outcomes[3].as<TransferOutcome::Dropped>()->reason, "No use");
    EXPECT_EQ(outcomes[4].as<TransferOutcome::Downloaded>()->job.fileId, "f");
    EXPECT_THAT(ownWrites, ElementsAre(testing::Pair("/nowhere/b.txt", 5)));
    std::vector<std::string> titles;
    for (const auto& row : index->recentActivity(10))
        titles.push_back(row.kind + ": " + row.title + ": " + row.detail.value_or(""));
    EXPECT_THAT(titles,
                ElementsAre("download: Kept local changes as b (1).txt: b.txt",
                            "upload: Uploaded as conflicted copy: a.txt", "upload: Uploaded: own.txt"));
}

TEST_F(TransferQueueTest, DeliveredWaitsForTheOutcomesThatTheRecordsShow) {
    asio::steady_timer gate(context, asio::steady_timer::time_point::max());
    wait(queue.addOutcomeHandler([&](const TransferOutcome&) -> asio::awaitable<void> {
        boost::system::error_code opened;
        co_await gate.async_wait(asio::redirect_error(asio::use_awaitable, opened));
    }));
    start();
    upload("a");
    wait(queue.delivered()); // what runs does not count
    runner->end("a");
    settle();
    EXPECT_EQ(state("a"), State::done);
    const auto delivered = asio::co_spawn(context, queue.delivered(), asio::use_future);
    settle();
    EXPECT_EQ(delivered.wait_for(0s), std::future_status::timeout);
    gate.cancel();
    settle();
    EXPECT_EQ(delivered.wait_for(0s), std::future_status::ready);
}

TEST_F(TransferQueueTest, CancelTakesAlongWhatTheRecordOwns) {
    auto job = uploadJob();
    job.deleteSourceWhenDone = true;
    job.sourcePath = folder / "copy";
    job.uploadId = "session";
    upload("waiting", job);
    auto download = downloadJob();
    download.tempPath = folder / ".korvane-1.partial";
    const auto partial = wait(queue.enqueueDownload(download, "b", 1));
    upload("stays");
    for (const auto& file : {job.sourcePath, *download.tempPath})
        writeFile(file, "bytes");
    runner->onAbort = []() -> asio::awaitable<void> {
        throw APIError(APIError::NotFound{});
        co_return;
    };
    wait(queue.cancel("waiting"));
    wait(queue.cancel(partial));
    wait(queue.cancel("unknown"));
    EXPECT_THAT(runner->aborted, ElementsAre("session"));
    EXPECT_FALSE(std::filesystem::exists(job.sourcePath));
    EXPECT_FALSE(std::filesystem::exists(*download.tempPath));
    EXPECT_THAT(wait(queue.snapshot()), ElementsAre(testing::Field(&TransferRecord::id, "stays")));
}

TEST_F(TransferQueueTest, SumsUpAndFindsByOrigin) {
    insert("failed", State::failed, clock->now());
    insert("done", State::done, clock->now());
    insert("unreadable", State::paused, clock->now(), {}, {0xFF});
    tables.run("UPDATE transfers SET progress=10, total=100");
    wait(queue.setMaxConcurrent(1));
    start();
    upload("sync", uploadJob(syncOrigin()));
    wait(queue.enqueueDownload(downloadJob(TransferOrigin::Pinned{}), "b", 50));
    settle();
    EXPECT_EQ(wait(queue.stats()), (TransferQueueStats{1, 1, 1, 1, 10, 150}));
    EXPECT_TRUE(wait(queue.hasActiveJob(syncOrigin())));
    EXPECT_FALSE(wait(queue.hasActiveJob(syncOrigin("other"))));
    EXPECT_THAT(
        wait(queue.activeOrigins()),
        UnorderedElementsAre(testing::Pair(syncOrigin(), State::running),
                             testing::Pair(TransferOrigin(TransferOrigin::Pinned{}), State::pending)));
    EXPECT_EQ(wait(queue.snapshot()).size(), 4U);
}

TEST_F(TransferQueueTest, AStormOfRequestsMakesFewPassesAndLosesNone) {
    constexpr int count = 2000;
    int passes = 0;
    wait(queue.setChangeHandler([&] { ++passes; }));
    runner->script = [this](TransferRun& run) -> asio::awaitable<JobRunner::Result> {
        co_await asio::post(context, asio::use_awaitable);
        co_return resultOf(run.record());
    };
    wait(queue.start());
    std::vector<std::future<std::string>> ids;
    for (int i = 0; i < count; ++i)
        ids.push_back(
            asio::co_spawn(context, queue.enqueueUpload(uploadJob(), std::to_string(i)), asio::use_future));
    settle();
    EXPECT_EQ(tables.query("SELECT 1 FROM transfers WHERE state=3").size(), std::size_t{count});
    EXPECT_EQ(runner->started.size(), std::size_t{count});
    EXPECT_LT(passes, count / 20);
}

// Acts on a run at each of its suspension points in turn: those of the runner, of the clean-up and of the
// outcome handler. Nothing may be lost, left running or run twice at once.
TEST_F(TransferQueueTest, PauseStopAndCancelAtEverySuspensionPoint) {
    constexpr int steps = 4;
    const auto suspend = [this]() -> asio::awaitable<void> { co_await clock->sleep(100ms); };
    runner->onAbort = suspend;
    runner->script = [&](TransferRun& run) -> asio::awaitable<JobRunner::Result> {
        auto job = std::get<UploadJob>(transferJob(run.record()));
        for (int step = 0; step < steps; ++step) {
            co_await suspend();
            job.uploadId = "session";
            run.setProgress(step, steps);
            run.save(job);
        }
        co_return TransferOutcome::Uploaded{job, {}};
    };
    wait(queue.addOutcomeHandler([&](const TransferOutcome&) { return suspend(); }));
    enum class Action { pause, stop, cancel, cancelAll };
    for (const auto action : {Action::pause, Action::stop, Action::cancel, Action::cancelAll}) {
        for (int point = 0; point <= steps + 1; ++point) {
            SCOPED_TRACE(std::to_string(static_cast<int>(action)) + " at " + std::to_string(point));
            index->reset();
            upload("x", uploadJob(syncOrigin()));
            start();
            for (int i = 0; i < point; ++i)
                advance(100ms);
            const auto act = [&]() -> asio::awaitable<void> {
                switch (action) {
                case Action::pause:
                    co_return co_await queue.setPaused(true);
                case Action::stop:
                    co_return co_await queue.stop();
                case Action::cancel:
                    co_return co_await queue.cancel("x");
                case Action::cancelAll:
                    (void)co_await queue.cancelAll(false);
                }
            };
            auto acted = asio::co_spawn(context, act(), asio::use_future);
            settle();
            advance(100ms);
            settle();
            ASSERT_EQ(acted.wait_for(0s), std::future_status::ready);
            const bool discarded = action == Action::cancel || action == Action::cancelAll;
            const auto stopped = action == Action::pause ? State::paused : State::pending;
            if (point >= steps)
                EXPECT_EQ(state("x"), State::done);
            else
                EXPECT_EQ(state("x"), discarded ? std::nullopt : std::optional(stopped));
            EXPECT_THAT(runner->live(), IsEmpty());
            wait(queue.setPaused(false));
            start();
            for (int i = 0; i < steps + 2; ++i)
                advance(100ms);
            EXPECT_EQ(state("x"), discarded && point < steps ? std::nullopt : std::optional(State::done));
            wait(queue.stop());
            wait(queue.finished());
        }
    }
}

TEST_F(TransferQueueTest, DamagedRowsAreLaunchedOrLeftAloneAndHoldUpNothing) {
    insert("garbage", State::pending, clock->now() - 5s, {}, {0xFF, 0x00});
    insert("odd state", State{9}, clock->now() - 4s);
    insert("odd kind", State::pending, clock->now() - 3s);
    tables.run("UPDATE transfers SET kind=7 WHERE id='odd kind'");
    runner->script = [](TransferRun& run) -> asio::awaitable<JobRunner::Result> {
        co_return resultOf(run.record());
    };
    wait(queue.setExpensiveNetwork(true));
    upload("sound");
    start();
    EXPECT_EQ(state("garbage"), State::failed);
    EXPECT_EQ(state("odd kind"), State::failed);
    EXPECT_EQ(state("odd state"), State{9});
    EXPECT_EQ(state("sound"), State::done);
    EXPECT_FALSE(outcomes[0].as<TransferOutcome::Failed>()->origin);
}

TEST_F(TransferQueueTest, WhatALockedIndexDidNotTakeIsWrittenLater) {
    start();
    upload("done", uploadJob(syncOrigin()));
    upload("dropped");
    tables.execute("CREATE TRIGGER no BEFORE UPDATE ON transfers BEGIN SELECT RAISE(FAIL, 'locked'); END;"
                   "CREATE TRIGGER nor BEFORE DELETE ON transfers BEGIN SELECT RAISE(FAIL, 'locked'); END;");
    runner->end("done");
    runner->fail("dropped", TransferQueue::DropReason("x"));
    settle();
    EXPECT_EQ(outcomes.size(), 2U);
    EXPECT_EQ(state("done"), State::running);
    upload("later");
    EXPECT_EQ(state("later"), State::pending);
    tables.execute("DROP TRIGGER no; DROP TRIGGER nor");
    advance(60s);
    EXPECT_EQ(state("done"), State::done);
    EXPECT_FALSE(state("dropped"));
    EXPECT_EQ(state("later"), State::running);
    EXPECT_EQ(runner->started.size(), 3U);
}

TEST_F(TransferQueueTest, AClockThatJumpsAYearHoldsNothingBack) {
    start();
    upload("x");
    runner->fail("x", TransferQueue::RetryLater(30));
    settle();
    clock->jump(-24h * 365);
    advance(1s);
    upload("after the jump"); // its pass notices
    EXPECT_NEAR(delay("x"), 29, 0.01);
    advance(29s);
    EXPECT_THAT(runner->live(), UnorderedElementsAre("x", "after the jump"));
    runner->fail("x", TransferQueue::RetryLater(30));
    settle();
    clock->jump(24h * 365);
    upload("later");
    EXPECT_THAT(runner->live(), UnorderedElementsAre("x", "later", "after the jump"));
    // Set back while the queue was off: seen by the creation date.
    wait(queue.stop());
    wait(queue.finished());
    clock->jump(-24h * 365);
    start();
    EXPECT_THAT(runner->live(), UnorderedElementsAre("x", "later", "after the jump"));
}

} // namespace
} // namespace Korvane::Testing
