#include "KorvaneCore/config/CrossProcessLock.hpp"

#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/VirtualClock.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <future>

namespace Korvane {
namespace {

using namespace std::chrono_literals;
using Testing::ChildProcess;
using Testing::VirtualClock;

class CrossProcessLockTest : public testing::Test {
protected:
    std::future<CrossProcessLock> acquire(std::chrono::nanoseconds timeout) {
        auto future = asio::co_spawn(context_, CrossProcessLock::acquire("token-refresh", timeout, clock_),
                                     asio::use_future);
        run();
        return future;
    }

    /// Lets everything run that does not wait for time.
    void run() {
        context_.restart();
        context_.poll();
    }

    void advance(std::chrono::nanoseconds duration) {
        clock_->advance(duration);
        run();
    }

    static bool isReady(std::future<CrossProcessLock>& future) {
        return future.wait_for(0s) == std::future_status::ready;
    }

    ChildProcess holder() {
        return ChildProcess(
            {Testing::builtProgram("korvane-test-peer").string(), "hold-lock", "token-refresh"});
    }

    Testing::TemporaryContainer container_;
    std::shared_ptr<VirtualClock> clock_ = std::make_shared<VirtualClock>();
    asio::io_context context_;
};

TEST_F(CrossProcessLockTest, IsTakenAsSoonAsTheHolderIsKilled) {
    auto other = holder();
    ASSERT_EQ(other.readLine(), "held");
    auto waiting = acquire(20s);
    advance(5s);
    ASSERT_FALSE(isReady(waiting));

    other.signal(SIGKILL);
    EXPECT_EQ(other.wait(), -SIGKILL);
    advance(100ms);
    ASSERT_TRUE(isReady(waiting));
    EXPECT_TRUE(waiting.get().isHeld());
}

TEST_F(CrossProcessLockTest, ASlowHolderIsWaitedForUntilTheTimeoutOnly) {
    auto other = holder();
    ASSERT_EQ(other.readLine(), "held");
    auto waiting = acquire(1s);
    for (int i = 0; i < 10; ++i)
        advance(100ms);
    ASSERT_FALSE(isReady(waiting)) << "at the deadline itself it is asked once more";
    advance(100ms);
    ASSERT_TRUE(isReady(waiting));
    const auto lock = waiting.get();
    EXPECT_FALSE(lock.isHeld());
    EXPECT_GE(lock.fd(), 0);
}

TEST_F(CrossProcessLockTest, ReleaseLetsOthersIn) {
    auto lock = acquire(0s).get();
    ASSERT_TRUE(lock.isHeld());
    auto kept = std::move(lock);
    {
        auto other = holder();
        EXPECT_EQ(other.readLine(), "busy");
    }
    kept.release();
    kept.release();
    EXPECT_EQ(kept.fd(), -1);
    auto other = holder();
    EXPECT_EQ(other.readLine(), "held");
}

TEST_F(CrossProcessLockTest, AnUnwritableContainerGivesNoLockAtOnce) {
    // A file where the folder should be: unwritable for every user, root included.
    Testing::writeFile(container_.path(), "");
    auto lock = acquire(20s);
    ASSERT_TRUE(isReady(lock));
    EXPECT_EQ(lock.get().fd(), -1);
}

} // namespace
} // namespace Korvane
