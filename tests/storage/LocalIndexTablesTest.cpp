// Transfers, the sync base and the small tables.
#include "KorvaneCore/storage/SQLiteError.hpp"
#include "tests/storage/IndexFixture.hpp"

#include <limits>

namespace Korvane::Testing {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using enum TransferRecord::State;
using State = TransferRecord::State;
using std::chrono::seconds;
using WhileRunning = LocalIndex::WhileRunning;

struct LocalIndexTables : IndexTest {
    TransferRecord record(const std::string& id, State state, seconds created = seconds(0)) const {
        return {.id = id,
                .kind = TransferRecord::Kind::download,
                .state = state,
                .payload = {1, 0},
                .attempts = 2,
                .nextAttempt = clock->now() + created,
                .lastError = "no",
                .progress = 1,
                .total = 2,
                .createdAt = clock->now() + created,
                .title = "title of " + id};
    }

    /// Every record as id, state and "k" when it has a dedupe key.
    std::string queue() {
        std::string all;
        for (const auto& row :
             tables.query("SELECT id||state||CASE WHEN dedupe_key IS NULL THEN '' ELSE 'k' END AS r "
                          "FROM transfers ORDER BY id"))
            all += (all.empty() ? "" : " ") + *row.string("r");
        return all;
    }
};

TEST_F(LocalIndexTables, EachOperationMeetsEachState) {
    struct Case {
        std::string name;
        std::function<void()> operation;
        std::array<std::string, 5> expected; // from pending, running, failed, done, paused
    };

    const auto inserted = record("new", pending);
    const auto insert = [&](const std::optional<std::string>& key, WhileRunning form) {
        return [&, key, form] {
            const bool stored = index.insertTransfer(inserted, key, form);
            EXPECT_EQ(stored ? index.transfer("new") : std::nullopt,
                      stored ? std::optional(inserted) : std::nullopt);
            EXPECT_EQ(stored, queue().starts_with("new"));
        };
    };
    const auto leaveOut = WhileRunning::leaveOut;
    const auto without = WhileRunning::insertWithoutKey;
    const std::vector<Case> cases{
        {"insert", insert("key", leaveOut), {"new0k", "old1k", "new0k", "new0k old3k", "new0k"}},
        {"insert as queue", insert("key", without), {"new0k", "new0 old1k", "new0k", "new0k old3k", "new0k"}},
        {"insert another",
         insert("other", leaveOut),
         {"new0k old0k", "new0k old1k", "new0k old2k", "new0k old3k", "new0k old4k"}},
        {"insert keyless",
         insert({}, leaveOut),
         {"new0 old0k", "new0 old1k", "new0 old2k", "new0 old3k", "new0 old4k"}},
        {"reset running",
         [&] { index.resetRunningTransfers(); },
         {"old0k", "old0k", "old2k", "old3k", "old4k"}},
        {"pause", [&] { index.setTransfersPaused(true); }, {"old4k", "old1k", "old2k", "old3k", "old4k"}},
        {"resume", [&] { index.setTransfersPaused(false); }, {"old0k", "old1k", "old2k", "old3k", "old0k"}},
        {"retry failed",
         [&] { index.retryFailedTransfers(); },
         {"old0k", "old1k", "old0k", "old3k", "old4k"}},
        {"prune younger",
         [&] { index.pruneDoneTransfers(seconds(60)); },
         {"old0k", "old1k", "old2k", "old3k", "old4k"}},
        {"prune older",
         [&] { index.pruneDoneTransfers(seconds(59)); },
         {"old0k", "old1k", "old2k", "", "old4k"}},
        {"finish",
         [&] { index.updateTransfer(record("old", done)); },
         {"old3k", "old3k", "old3k", "old3k", "old3k"}},
        {"delete", [&] { index.deleteTransfer("old"); }, {"", "", "", "", ""}},
    };
    for (const auto& [name, operation, expected] : cases) {
        for (std::size_t state = 0; state < expected.size(); ++state) {
            SCOPED_TRACE(name + " at " + std::to_string(state));
            index.reset();
            index.insertTransfer(record("old", State{static_cast<std::int64_t>(state)}, -seconds(60)), "key");
            operation();
            EXPECT_EQ(queue(), expected[state]);
        }
    }
}

TEST_F(LocalIndexTables, RetryKeepsOfEachKeyTheNewestAndNoneBesideAnActiveOne) {
    index.insertTransfer(record("keyless", failed));
    for (const auto* id : {"active", "older", "newer", "tied1", "tied2"})
        index.insertTransfer(record(id, failed, seconds(id[0] == 'n' ? 1 : 0)), id);
    index.insertTransfer(record("a", running), "live");
    // Failures of one key gather while its transfer runs again and again.
    tables.execute("UPDATE transfers SET dedupe_key='live' WHERE id='active';"
                   "UPDATE transfers SET dedupe_key='age' WHERE id IN ('older','newer');"
                   "UPDATE transfers SET dedupe_key='tie' WHERE id LIKE 'tied%'");
    clock->advance(seconds(5));
    index.retryFailedTransfers();
    EXPECT_EQ(queue(), "a1k keyless0 newer0k tied20k");
    const auto retried = *index.transfer("newer");
    EXPECT_EQ(retried.attempts, 0);
    EXPECT_EQ(retried.nextAttempt, clock->now());
    EXPECT_EQ(retried.lastError, std::nullopt);
}

TEST_F(LocalIndexTables, SecondActiveRecordOfAKeyIsRefused) {
    index.insertTransfer(record("old", running), "key");
    auto second = record("new", done);
    index.insertTransfer(second, "key");
    EXPECT_EQ(queue(), "old1k");
    index.updateTransfer(record("old", done));
    index.insertTransfer(second, "key");
    index.insertTransfer(record("third", pending), "key");
    second.state = pending;
    EXPECT_THROW(index.updateTransfer(second), SQLiteError);
    EXPECT_EQ(queue(), "new3k old3k third0k");
}

TEST_F(LocalIndexTables, DueRecordsComeOldestFirst) {
    for (const auto& [id, created] : {std::pair("c", 3), {"a", 1}, {"late", 9}, {"b", 2}})
        index.insertTransfer(record(id, pending, seconds(created)));
    index.insertTransfer(record("held", paused));
    const auto ids = [](const std::vector<TransferRecord>& records) {
        std::vector<std::string> found(records.size());
        std::ranges::transform(records, found.begin(), &TransferRecord::id);
        return found;
    };
    EXPECT_THAT(ids(index.runnableTransfers(2, clock->now() + seconds(3))), ElementsAre("a", "b"));
    EXPECT_THAT(ids(index.runnableTransfers(-1, clock->now() + seconds(3))), ElementsAre("a", "b", "c"));
    EXPECT_EQ(index.nextTransferWakeup(), clock->now() + seconds(1));
    EXPECT_THAT(ids(index.transfers({{paused, done}}, 9)), ElementsAre("held"));
    EXPECT_EQ(index.transfers({}, 9).size(), 5U);
    EXPECT_EQ(index.transfers({}, 3).size(), 3U);
    EXPECT_THAT(index.transfers({std::vector<State>()}, 9), IsEmpty());

    auto changed = record("a", failed, seconds(1));
    changed.payload = {9}, changed.attempts = 7, changed.lastError = {}, changed.title = "x";
    index.updateTransfer(changed);
    index.setTransferProgress("a", 1LL << 40, 1LL << 41);
    changed.progress = 1LL << 40, changed.total = 1LL << 41;
    EXPECT_EQ(index.transfer("a"), changed);
    index.setTransfersPaused(true);
    EXPECT_EQ(index.nextTransferWakeup(), std::nullopt);
}

TEST_F(LocalIndexTables, BaseMovesAndGoesWithWhatLiesBelowItsSlashOnly) {
    const auto entry = [](const std::string& path) {
        return LocalIndex::BaseEntry{path, "id " + path, false, 3, 1LL << 40, 1.7e9 + 0.25, ~0ULL, "hash"};
    };
    const auto paths = [&](const std::string& root) {
        std::vector<std::string> found;
        for (const auto& [path, stored] : index.baseEntries(root))
            found.push_back(path);
        return found;
    };
    for (const auto* path : {"ä%", "ä%/x", "ä%/y/z", "ä%b", "äx/x", "other"})
        index.setBase("r", entry(path));
    index.setBase("s", entry("ä%"));
    EXPECT_EQ(index.baseEntries("r").at("ä%/x"), entry("ä%/x"));
    EXPECT_EQ(index.baseLocation("id other", 3), (LocalIndex::BaseLocation{"r", "other"}));
    EXPECT_EQ(index.baseLocation("id other", 4), std::nullopt);

    index.moveBase("r", "ä%", "new/é");
    EXPECT_THAT(paths("r"), UnorderedElementsAre("new/é", "new/é/x", "new/é/y/z", "ä%b", "äx/x", "other"));
    EXPECT_THROW(index.moveBase("r", "new/é", "äx"), SQLiteError) << "äx/x is taken";
    EXPECT_EQ(paths("r").size(), 6U) << "and nothing has moved";
    index.removeBase("r", "new/é", false);
    index.removeBase("r", "new/é/y", true);
    index.removeBase("r", "ä%", true);
    EXPECT_THAT(paths("r"), UnorderedElementsAre("new/é/x", "ä%b", "äx/x", "other"));
    index.clearBase("r");
    EXPECT_THAT(paths("r"), IsEmpty());
    EXPECT_THAT(paths("s"), ElementsAre("ä%"));
}

TEST_F(LocalIndexTables, SmallTablesKeepWhatTheyAreGiven) {
    index.setPinned("a", true);
    index.setPinnedVersion("a", 4, "/a");
    index.setPinned("a", true);
    index.setPinnedVersion("unpinned", 1, {});
    EXPECT_THAT(index.pinnedIds(), ElementsAre(std::pair("a", 4)));
    index.setPinned("a", false);
    EXPECT_THAT(index.pinnedIds(), IsEmpty());

    index.markAssetUploaded("asset", "file");
    index.markAssetUploaded("asset", {});
    EXPECT_THAT(index.uploadedAssetIds(), ElementsAre("asset"));
    EXPECT_EQ(index.uploadedAssetCount(), 1);

    index.saveShareKey("share", "old", LocalIndex::Bytes{1});
    index.saveShareKey("share", "entity", LocalIndex::Bytes{});
    EXPECT_THAT(index.shareKeys(), ElementsAre(LocalIndex::ShareKey{"share", "entity", {}}));
    index.removeShareKey("share");
    EXPECT_THAT(index.shareKeys(), IsEmpty());

    const std::array<std::pair<std::optional<std::string>, std::int64_t>, 5> cursors{
        {{"12", 12}, {"x", 0}, {"", 0}, {"9223372036854775808", 0}, {{}, 0}}};
    for (const auto& [text, expected] : cursors) {
        index.setValue(text, "lastSeq");
        EXPECT_EQ(index.value("lastSeq"), text);
        EXPECT_EQ(index.lastSeq(), expected);
    }
    index.setLastSeq(std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(index.lastSeq(), std::numeric_limits<std::int64_t>::max());
}

TEST_F(LocalIndexTables, ActivityLogKeepsItsNewest1001Rows) {
    for (int number = 1; number <= 1500; ++number)
        index.log("upload", std::to_string(number), number == 1500 ? std::optional("why") : std::nullopt,
                  number == 1500);
    const auto rows = index.recentActivity(2000);
    ASSERT_EQ(rows.size(), 1001U);
    EXPECT_EQ(rows.front(), (LocalIndex::Activity{1500, clock->now(), "upload", "1500", "why", true}));
    EXPECT_EQ(rows.back().title, "500");
    EXPECT_EQ(index.recentActivity(1).size(), 1U);
}

} // namespace
} // namespace Korvane::Testing
