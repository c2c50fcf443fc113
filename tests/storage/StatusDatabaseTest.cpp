#include "KorvaneCore/storage/StatusDatabase.hpp"

#include "KorvaneCore/config/KRIdentifiers.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <semaphore>

namespace Korvane::Testing {
namespace {

using enum PathStatus;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

struct StatusDatabaseTest : testing::Test {
    TemporaryFolder folder;
    NotificationCenter notifications{folder / "notifications"};
    StatusDatabase database{folder / "status.sqlite", notifications};
};

TEST_F(StatusDatabaseTest, AbsentItemIdKeepsTheStoredOne) {
    database.set(queued, "/r/a", "item");
    database.set(syncing, "/r/a");
    EXPECT_EQ(database.status("/r/a"), syncing);
    EXPECT_EQ(database.itemId("/r/a"), "item");
    database.setMany({{"/r/a", synced, "other"}, {"/r/b", error, {}}});
    EXPECT_EQ(database.itemId("/r/a"), "other");
    EXPECT_EQ(database.itemId("/r/b"), std::nullopt);
    EXPECT_EQ(database.status("/r/unknown"), std::nullopt);
}

TEST_F(StatusDatabaseTest, FolderTakesInOnlyWhatLiesBelowItsSlash) {
    struct Case {
        std::string path;
        std::string below;
        std::string sibling;
    };

    const std::vector<Case> cases{
        {"/r/docs", "/r/docs/deep/a", "/r/docs2/a"},
        {"/r/100%", "/r/100%/a", "/r/100x/a"},
        {"/r/a_b", "/r/a_b/a", "/r/axb/a"},
        {"/r/it's", "/r/it's/a", "/r/its/a"},
        {"/r/Case", "/r/Case/a", "/r/case/a"},
        {"/r/Fu\u0308\u00dfe", "/r/Fu\u0308\u00dfe/\u00e4", "/r/F\u00fc\u00dfe/a"},
        {"/r/\U0001f4f7", "/r/\U0001f4f7/\u65e5\u672c", "/r/\U0001f4f7\U0001f4f7/a"},
        {"/r/\x80\xff\xa4\xa4", "/r/\x80\xff\xa4\xa4/\x80", "/r/\x80\xff\xa4/a"}, // no UTF-8
    };
    for (const auto& [path, below, sibling] : cases) {
        SCOPED_TRACE(path);
        const auto fill = [&] {
            database.setMany({{path, synced, {}}, {below, queued, {}}, {sibling, error, {}}});
        };
        fill();
        EXPECT_EQ(database.aggregateStatus(path), queued);
        EXPECT_EQ(database.aggregateStatus("/r"), error);
        database.remove(path, false);
        EXPECT_EQ(database.status(path), std::nullopt);
        EXPECT_EQ(database.status(below), queued);
        fill();
        database.clearRoot(path);
        EXPECT_EQ(database.aggregateStatus(path), std::nullopt);
        EXPECT_EQ(database.aggregateStatus("/r"), error);
        EXPECT_EQ(database.status(sibling), error);
        database.clearAll();
    }
}

TEST_F(StatusDatabaseTest, FolderShowsTheMostUrgentState) {
    for (const auto status : {excluded, synced, queued, syncing, conflict, error}) {
        database.set(status, "/r/" + std::string(badgeIdentifier(status)));
        EXPECT_EQ(database.aggregateStatus("/r"), status);
    }
}

TEST_F(StatusDatabaseTest, UnknownTextIsNoStatus) {
    database.set(synced, "/r/a", "item");
    SQLiteDatabase(folder / "status.sqlite").run("UPDATE status SET state='paused'");
    EXPECT_EQ(database.status("/r/a"), std::nullopt);
    EXPECT_EQ(database.aggregateStatus("/r"), std::nullopt);
    EXPECT_EQ(database.itemId("/r/a"), "item");
}

TEST_F(StatusDatabaseTest, RootsAreReplacedWholeAndOutliveTheirStates) {
    database.setRoots({{"/old", "remote"}});
    database.setRoots({{"/a", "remote"}, {"/b", {}}});
    EXPECT_THROW(database.setRoots({{"/c", {}}, {"/c", {}}}), std::runtime_error) << "a root given twice";
    database.clearRoot("/a");
    EXPECT_THAT(database.roots(), UnorderedElementsAre("/a", "/b"));
    database.clearAll();
    EXPECT_THAT(database.roots(), IsEmpty());
}

TEST_F(StatusDatabaseTest, EachChangeIsPostedOnceItCanBeRead) {
    StatusDatabase reader(folder / "status.sqlite", notifications);
    std::counting_semaphore<> posts(0);
    std::atomic<std::size_t> seen = 0;
    const auto observation = notifications.observe(KRIdentifiers::statusChangedNotification, [&] {
        seen = reader.roots().size() + (reader.aggregateStatus("/r") ? 1U : 0U);
        posts.release();
    });
    const std::vector<std::pair<std::function<void()>, std::size_t>> changes{
        {[&] { database.set(synced, "/r/a"); }, 1},
        {[&] { database.remove("/r", true); }, 0},
        {[&] { database.setMany({{"/r/a", synced, {}}, {"/r/b", synced, {}}}); }, 1},
        {[&] { database.setRoots({{"/r", {}}}); }, 2},
        {[&] { database.clearRoot("/r"); }, 1},
        {[&] { database.clearAll(); }, 0},
    };
    for (const auto& [change, expected] : changes) {
        change();
        ASSERT_TRUE(posts.try_acquire_for(std::chrono::seconds(20)));
        EXPECT_EQ(seen, expected);
    }
    EXPECT_FALSE(posts.try_acquire());
}

TEST_F(StatusDatabaseTest, ChangeStaysWhenItCannotBePosted) {
    StatusDatabase unheard(folder / "status.sqlite", NotificationCenter(folder / "status.sqlite"));
    unheard.set(conflict, "/r/a");
    EXPECT_EQ(database.status("/r/a"), conflict);
}

} // namespace
} // namespace Korvane::Testing
