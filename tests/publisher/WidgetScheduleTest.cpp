#include "KorvaneCore/publisher/WidgetSchedule.hpp"

#include "KorvaneCore/config/KRIdentifiers.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/widget/WidgetStore.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/VirtualTime.hpp"

#include <gtest/gtest.h>

namespace Korvane::Testing {
namespace {

using namespace std::chrono_literals;

class WidgetScheduleTest : protected VirtualTime, public testing::Test {
protected:
    void SetUp() override { // NOLINT(*-identifier-naming)
        await(schedule_->start());
        advance(1s);
        EXPECT_EQ(std::exchange(published_, 0), 1) << "what changed before";
    }

    void TearDown() override { await(schedule_->stop()); } // NOLINT(*-identifier-naming)

    asio::awaitable<void> publish() {
        ++published_;
        co_await clock->sleep(workTime_);
        ++completed_;
        if (fails_)
            throw std::runtime_error("cannot publish");
    }

    void changed() {
        schedule_->changed();
        settle();
    }

    /// Until a change waits to be published; it may come from another thread or process.
    void waitForChange() {
        context.restart();
        while (clock->sleepers() < 2 && context.run_one_for(20s) > 0) {
        }
        EXPECT_EQ(clock->sleepers(), 2U) << "the day's and the change's";
    }

    TemporaryContainer container_;
    ScopedEnvironment zone_{"TZ", "UTC"};
    std::shared_ptr<WidgetSchedule> schedule_ = std::make_shared<WidgetSchedule>(
        context.get_executor(), clock, NotificationCenter(SharedContainer::notificationFolder()),
        [this] { return publish(); });
    Clock::Duration workTime_{};
    bool fails_ = false;
    int published_ = 0;
    int completed_ = 0;
};

TEST_F(WidgetScheduleTest, ChangesThatComeTogetherArePublishedOnceAndThoseMeanwhileOnceMore) {
    workTime_ = 10s;
    fails_ = true;
    for (int i = 0; i < 5; ++i)
        changed();
    advance(999ms);
    changed();
    EXPECT_EQ(published_, 0);
    advance(1ms);
    EXPECT_EQ(published_, 1);
    changed();
    changed();
    advance(9s);
    EXPECT_EQ(published_, 1) << "never twice at a time";
    advance(1s);
    advance(1s);
    EXPECT_EQ(published_, 2);
    advance(10s);
    advance(1h);
    EXPECT_EQ(published_, 2);
}

TEST_F(WidgetScheduleTest, OtherProcessesPinsAndAChoiceToHideContentAreNoticed) {
    EXPECT_EQ(
        runProgram("korvane-test-peer", {"post", std::string(KRIdentifiers::widgetsChangedNotification)})
            .exitCode,
        0);
    waitForChange();
    advance(1s);
    EXPECT_EQ(published_, 1);
    WidgetStore::setHideContent(true);
    waitForChange();
    advance(1s);
    EXPECT_EQ(published_, 2);
}

TEST_F(WidgetScheduleTest, ANewDayIsPublishedWhenItBeginsHoweverItComes) {
    const auto untilMidnight = std::chrono::ceil<std::chrono::days>(clock->now()) - clock->now();
    for (auto left = untilMidnight - 1ms; left > 0ms; left -= std::min<decltype(left)>(left, 5min))
        advance(std::min<decltype(left)>(left, 5min));
    EXPECT_EQ(published_, 0);
    advance(1ms);
    advance(1s);
    EXPECT_EQ(published_, 1);
    clock->jump(48h); // as after sleep
    advance(WidgetSchedule::dayLookInterval);
    advance(1s);
    EXPECT_EQ(published_, 2);
    const ScopedEnvironment moved("TZ", "Pacific/Pago_Pago");
    advance(WidgetSchedule::dayLookInterval);
    advance(1s);
    EXPECT_EQ(published_, 3);
}

TEST_F(WidgetScheduleTest, StoppingCancelsWhatRunsAndNothingIsPublishedUntilTheNextStart) {
    workTime_ = 10s;
    changed();
    advance(1s);
    await(schedule_->stop());
    EXPECT_EQ(clock->sleepers(), 0U);
    changed();
    advance(48h);
    EXPECT_EQ(published_, 1);
    EXPECT_EQ(completed_, 1) << "that of the start alone";
    await(schedule_->start());
    advance(1s);
    EXPECT_EQ(published_, 2);
}

} // namespace
} // namespace Korvane::Testing
