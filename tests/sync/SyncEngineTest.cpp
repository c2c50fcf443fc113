#include "KorvaneCore/sync/SyncEngine.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/VirtualTime.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <system_error>

namespace Korvane {
namespace {

using namespace std::chrono_literals;
using Testing::writeFile;

/// Streams that tell what the test says, in place of the system's.
class ScriptedEvents {
public:
    std::unique_ptr<FileEventStream> open(const std::vector<std::string>& paths, FileEventHandler handler) {
        const MutexLock lock(mutex_);
        if (isOutOfDescriptors)
            throw std::system_error(EMFILE, std::generic_category());
        return std::make_unique<Stream>(*this, paths.front(), std::move(handler));
    }

    FileEventSource source() {
        return [this](const auto& paths, const auto& options, auto handler) {
            EXPECT_EQ(options.latency, 300ms);
            EXPECT_EQ(options.queue, "app.korvane.fsevents");
            return open(paths, std::move(handler));
        };
    }

    void tell(const std::string& root, const std::vector<FileEvent>& batch) {
        const MutexLock lock(mutex_);
        for (auto* stream : streams_)
            if (stream->root == root)
                stream->handler(batch);
    }

    std::vector<std::string> watched() {
        const MutexLock lock(mutex_);
        std::vector<std::string> roots;
        roots.reserve(streams_.size());
        for (const auto* stream : streams_)
            roots.push_back(stream->root);
        std::ranges::sort(roots);
        return roots;
    }

    std::atomic<bool> isOutOfDescriptors = false;

private:
    struct Stream final : FileEventStream {
        Stream(ScriptedEvents& owner, std::string path, FileEventHandler told)
            : events(owner), root(std::move(path)), handler(std::move(told)) {
            events.streams_.push_back(this);
        }

        Stream(const Stream&) = delete;
        Stream& operator=(const Stream&) = delete;

        ~Stream() override {
            const MutexLock lock(events.mutex_);
            std::erase(events.streams_, this);
        }

        ScriptedEvents& events;
        const std::string root;
        const FileEventHandler handler;
    };

    Mutex mutex_;
    std::vector<Stream*> streams_;
};

struct Engine : Testing::VirtualTime, testing::Test {
    static constexpr auto settleInterval = 2s;

    void TearDown() override { await(engine->stop()); } // NOLINT(*-identifier-naming)

    std::shared_ptr<SyncEngine> makeEngine(const FileEventSource& source) {
        const auto reconcile = [this](SyncEngine::Root root) -> asio::awaitable<void> {
            return reconcileOne(std::move(root));
        };
        return std::make_shared<SyncEngine>(context.get_executor(), clock, settleInterval, reconcile, source);
    }

    asio::awaitable<void> reconcileOne(SyncEngine::Root root) {
        reconciled.push_back(root.id);
        co_await clock->sleep(reconcileTime);
        ++completed;
        if (reconcileFails)
            throw std::runtime_error("the reconcile failed");
    }

    void startWithRoot() {
        await(engine->addRoot({"id", "/r"}));
        await(engine->start());
    }

    void tell(const std::vector<FileEvent>& batch, const std::string& root = "/r") {
        events.tell(root, batch);
        settle();
    }

    ScriptedEvents events;
    std::shared_ptr<SyncEngine> engine = makeEngine(events.source());
    std::vector<std::string> reconciled;
    int completed = 0;
    Clock::Duration reconcileTime{};
    bool reconcileFails = false;
};

TEST_F(Engine, TenEventsInARowLeadToOneReconcileAfterTheLast) {
    startWithRoot();
    for (int i = 0; i < 10; ++i) {
        tell({{"/r/file" + std::to_string(i)}});
        EXPECT_EQ(clock->sleepers(), 1U) << "one settle time is pending";
        advance(1s);
    }
    advance(999ms);
    EXPECT_TRUE(reconciled.empty());
    advance(1ms);
    EXPECT_EQ(reconciled, std::vector<std::string>{"id"});
    advance(1h);
    EXPECT_EQ(reconciled.size(), 1U);
}

TEST_F(Engine, NoiseSchedulesNothingUnlessEventsWereDropped) {
    startWithRoot();

    struct Case {
        std::uint32_t flags;
        bool schedules;
    };

    for (const auto& [flags, schedules] : {Case{0, false},
                                           {0x01, true},
                                           {0x02, true},
                                           {0x04, true},
                                           {0x20, true},
                                           {0x08, false},
                                           {0x10, false}}) {
        tell({{"/r/.DS_Store"}, {"/r/._file", flags}});
        EXPECT_EQ(clock->sleepers(), schedules ? 1U : 0U) << flags;
        advance(settleInterval);
    }
}

TEST_F(Engine, ItsOwnWriteStartsNoReconcileWithinFiveSecondsAndOneAfterSix) {
    const Testing::TemporaryFolder folder;
    const auto file = folder / "downloaded";
    writeFile(file, "content");
    await(engine->addRoot({"id", folder.path()}));
    await(engine->start());
    engine->ownWrites()->registerWrite(file, localStat(file).value());
    engine->ownWrites()->registerRemoval(folder / "removed");
    const std::vector<FileEvent> batch{{folder / "removed"}, {file}};
    advance(5s);
    tell(batch, folder.path());
    EXPECT_EQ(clock->sleepers(), 0U);
    advance(1s);
    tell(batch, folder.path());
    EXPECT_EQ(clock->sleepers(), 1U);
}

TEST_F(Engine, AFailedReconcileIsTriedAgainEverLaterUntilItSucceeds) {
    reconcileFails = true;
    startWithRoot();
    tell({{"/r/a"}});
    advance(settleInterval);
    for (const auto delay : {10s, 20s, 40s}) {
        const auto before = reconciled.size();
        advance(delay - 1s);
        EXPECT_EQ(reconciled.size(), before);
        advance(1s);
        EXPECT_EQ(reconciled.size(), before + 1);
    }
    tell({{"/r/b"}});
    advance(settleInterval);
    EXPECT_EQ(reconciled.size(), 5U) << "a change does not wait for the next try";
    reconcileFails = false;
    advance(160s);
    EXPECT_EQ(clock->sleepers(), 0U);
}

TEST_F(Engine, WhatChangesInTheContainerIsNoConcern) {
    const auto container = SharedContainer::location().string();
    startWithRoot();
    tell({{container + "/index.sqlite-wal"}});
    EXPECT_EQ(clock->sleepers(), 0U);
}

TEST_F(Engine, ChangesDuringAReconcileLeadToOneMoreAndNeverTwoAtATime) {
    reconcileTime = 10s;
    reconcileFails = true;
    startWithRoot();
    tell({{"/r/a"}});
    advance(settleInterval);
    for (int i = 0; i < 3; ++i) {
        tell({{"/r/b"}});
        advance(settleInterval);
    }
    EXPECT_EQ(reconciled.size(), 1U);
    advance(4s);
    reconcileFails = false;
    EXPECT_EQ(completed, 1);
    EXPECT_EQ(reconciled.size(), 2U);
    advance(1h);
    EXPECT_EQ(completed, 2);
    EXPECT_EQ(clock->sleepers(), 0U);
}

TEST_F(Engine, ScheduleReconcileReplacesTheTimePlannedBefore) {
    await(engine->addRoot({"id", "/r"}));
    await(engine->scheduleReconcile("id", 0s));
    EXPECT_TRUE(reconciled.empty()) << "the engine is stopped";
    await(engine->start());
    await(engine->scheduleReconcile("id", 1h));
    await(engine->scheduleReconcile("id", 1s));
    await(engine->scheduleReconcile("unknown", 1s));
    advance(1s);
    EXPECT_EQ(reconciled, std::vector<std::string>{"id"});
    EXPECT_EQ(clock->sleepers(), 0U);
}

TEST_F(Engine, RootsAreWatchedWhileTheEngineRuns) {
    using Roots = std::vector<std::string>;
    await(engine->addRoot({"1", "/r1"}));
    EXPECT_EQ(events.watched(), Roots());
    await(engine->start());
    await(engine->start());
    EXPECT_EQ(events.watched(), (Roots{"/r1"}));
    await(engine->addRoot({"2", "/r2"}));
    EXPECT_EQ(events.watched(), (Roots{"/r1", "/r2"}));
    await(engine->addRoot({"2", "/moved"}));
    EXPECT_EQ(events.watched(), (Roots{"/moved", "/r1"}));

    events.isOutOfDescriptors = true;
    EXPECT_THROW(await(engine->addRoot({"3", "/r3"})), std::system_error);
    events.isOutOfDescriptors = false;
    await(engine->removeRoot("1"));
    EXPECT_EQ(events.watched(), (Roots{"/moved"}));
    await(engine->stop());
    EXPECT_EQ(events.watched(), Roots());

    events.isOutOfDescriptors = true;
    EXPECT_THROW(await(engine->start()), std::system_error);
    events.isOutOfDescriptors = false;
    await(engine->start());
    EXPECT_EQ(events.watched(), (Roots{"/moved"}));
}

TEST_F(Engine, RemovingARootOrStoppingEndsWhatIsPendingAndWaitsForWhatRuns) {
    for (const bool stops : {false, true}) {
        SCOPED_TRACE(stops);
        reconcileTime = 10s;
        await(engine->start());
        await(engine->addRoot({"id", "/r"}));
        await(engine->scheduleReconcile("id", 0s));
        tell({{"/r/a"}});
        EXPECT_EQ(clock->sleepers(), 2U);
        await(stops ? engine->stop() : engine->removeRoot("id"));
        EXPECT_EQ(clock->sleepers(), 0U);
        advance(1h);
    }
    EXPECT_EQ(reconciled.size(), 2U);
    EXPECT_EQ(completed, 0);
}

TEST_F(Engine, AReleasedEngineEndsItsSettleTimes) {
    auto released = makeEngine(events.source());
    await(released->addRoot({"id", "/released"}));
    await(released->start());
    tell({{"/released/a"}}, "/released");
    released.reset();
    EXPECT_TRUE(events.watched().empty());
    advance(settleInterval);
    EXPECT_EQ(clock->sleepers(), 0U);
    EXPECT_TRUE(reconciled.empty());
}

TEST_F(Engine, AFileWrittenBelowARealRootIsReconciled) {
    const Testing::TemporaryFolder folder;
    const auto real = makeEngine(openFileEventStream);
    await(real->addRoot({"real", folder.path()}));
    await(real->start());
    writeFile(folder / "new/sub/file", "content");
    const auto work = asio::make_work_guard(context);
    context.restart();
    while (clock->sleepers() == 0)
        ASSERT_NE(context.run_one_for(20s), 0U);
    await(real->scheduleReconcile("real", 0s));
    EXPECT_EQ(reconciled, std::vector<std::string>{"real"});
    await(real->stop());
}

TEST(FSEventWatcher, OneStreamHoweverOftenStartedAndNoneWithoutPaths) {
    ScriptedEvents events;
    FSEventWatcher watcher({"/r"}, [](const auto&, bool) {}, events.source());
    watcher.start();
    watcher.start();
    EXPECT_EQ(events.watched().size(), 1U);
    watcher.stop();
    EXPECT_EQ(events.watched().size(), 0U);
    watcher.start();
    EXPECT_EQ(events.watched().size(), 1U);

    FSEventWatcher pathless({}, [](const auto&, bool) {}, events.source());
    pathless.start();
    EXPECT_EQ(events.watched().size(), 1U);
}

} // namespace
} // namespace Korvane
