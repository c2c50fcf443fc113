// `korvane status` as a person runs it.
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/storage/StatusDatabase.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace Korvane::Testing {
namespace {

struct StatusCommand : testing::Test {
    TemporaryContainer container;

    static StatusDatabase open() {
        return {SharedContainer::statusDatabaseURL(),
                NotificationCenter(SharedContainer::notificationFolder())};
    }
};

TEST_F(StatusCommand, WithoutDatabaseNothingHasAStateAndNothingIsCreated) {
    EXPECT_EQ(runProgram("korvane", {"status"}).output, "No folder is synced.\n");
    EXPECT_EQ(runProgram("korvane", {"status", "/r", "--json"}).output, "[{\"path\":\"/r\"}]\n");
    EXPECT_FALSE(std::filesystem::exists(container.path()));
}

TEST_F(StatusCommand, PrintsRootsOrTheGivenPaths) {
    auto database = open();
    database.setRoots({{"/r", {}}});
    database.setMany({{"/r/a", PathStatus::synced, "item"}, {"/r/b", PathStatus::conflict, {}}});
    EXPECT_EQ(runProgram("korvane", {"status"}).output, "conflict  /r\n");
    EXPECT_EQ(runProgram("korvane", {"status", "/r/x/../a/", "/s"}).output, "synced    /r/a\nnone      /s\n");
    EXPECT_EQ(runProgram("korvane", {"status", "--json", "/r/a"}).output,
              "[{\"path\":\"/r/a\",\"status\":\"synced\",\"itemId\":\"item\"}]\n");
}

TEST_F(StatusCommand, WatchPrintsAgainAfterAChange) {
    auto database = open();
    ChildProcess watching({builtProgram("korvane").string(), "status", "--watch", "/r"});
    EXPECT_EQ(watching.readLine(), "none      /r");
    database.set(PathStatus::syncing, "/r/a");
    EXPECT_EQ(watching.readLine(), "syncing   /r");
}

TEST_F(StatusCommand, UnreadableDatabaseExitsWithOneAndWrongUsageWithTwo) {
    writeFile(container.path() / "status.sqlite", std::string(4096, 'x'));
    EXPECT_EQ(runProgram("korvane", {"status"}).exitCode, 1);
    EXPECT_EQ(runProgram("korvane", {"status", "--unknown"}).exitCode, 2);
}

} // namespace
} // namespace Korvane::Testing
