#include "KorvaneCore/platform/NotificationCenter.hpp"

#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <semaphore>

namespace Korvane {
namespace {

using namespace std::chrono_literals;

TEST(NotificationCenter, APostFromAnotherProcessReachesObserversOfItsName) {
    const Testing::TemporaryContainer container;
    NotificationCenter center(container.path() / "Library/Notifications");
    std::counting_semaphore<> changed(0);
    std::counting_semaphore<> other(0);
    const auto observation = center.observe("app.korvane.queueChanged", [&] { changed.release(); });
    const auto otherObservation = center.observe("app.korvane.other", [&] { other.release(); });

    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(Testing::runProgram("korvane-test-peer", {"post", "app.korvane.queueChanged"}).exitCode, 0);
        EXPECT_TRUE(changed.try_acquire_for(20s));
    }
    EXPECT_FALSE(other.try_acquire());
}

TEST(NotificationCenter, ObserversSurviveTheLossOfTheFolder) {
    const Testing::TemporaryFolder folder;
    NotificationCenter center(folder / "posts");
    std::counting_semaphore<> posts(0);
    const auto observation = center.observe("name", [&] { posts.release(); });

    std::filesystem::remove_all(folder / "posts");
    EXPECT_TRUE(posts.try_acquire_for(20s)) << "a post may have been missed";
    center.post("name");
    EXPECT_TRUE(posts.try_acquire_for(20s));
}

TEST(NotificationCenter, NothingRunsOnceTheObservationHasEnded) {
    const Testing::TemporaryFolder folder;
    NotificationCenter center(folder.path());
    std::counting_semaphore<> posts(0);
    {
        const auto observation = center.observe("name", [&] { posts.release(); });
        center.post("name");
        ASSERT_TRUE(posts.try_acquire_for(20s));
    }
    center.post("name");
    EXPECT_FALSE(posts.try_acquire());
}

TEST(NotificationCenter, NamesThatWouldLeaveTheFolderAreRefused) {
    const Testing::TemporaryFolder folder;
    NotificationCenter center(folder.path());
    for (const auto* name : {"", ".", "..", "a/b", "/etc/passwd"})
        EXPECT_THROW(center.post(name), std::invalid_argument) << name;
}

} // namespace
} // namespace Korvane
