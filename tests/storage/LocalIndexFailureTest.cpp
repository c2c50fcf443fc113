// What is left of the local index when things go wrong.
#include "KorvaneCore/storage/IndexInspector.hpp"
#include "KorvaneCore/storage/IndexSchema.hpp"
#include "KorvaneCore/storage/SQLiteError.hpp"
#include "tests/storage/IndexFixture.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/StatementFailure.hpp"

#include <fstream>

namespace Korvane::Testing {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

using LocalIndexFailure = IndexTest;

/// Runs the operation with its first question refused, then its second, …, until none is left to refuse, and
/// after each run `check` with whether it failed.
int failEach(StatementFailure& failure, const std::function<void()>& operation,
             const std::function<void(bool)>& check) {
    for (int refused = 0;; ++refused) {
        failure.refuseAfter(refused);
        bool failed = false;
        try {
            operation();
        } catch (const SQLiteError&) {
            failed = true;
        }
        EXPECT_EQ(failure.disarm(), failed) << "no refusal is swallowed";
        check(failed);
        if (!failed)
            return refused;
    }
}

std::map<std::string, std::optional<std::string>> schemaOf(SQLiteDatabase& database) {
    std::map<std::string, std::optional<std::string>> schema;
    for (const auto& row :
         database.query("SELECT name, sql FROM sqlite_master WHERE name NOT LIKE 'sqlite%'"))
        schema.emplace(*row.string("name"), row.string("sql"));
    return schema;
}

TEST_F(LocalIndexFailure, MigrationStoppedAnywhereIsContinuedByTheNextOpen) {
    const std::string toVersion2 =
        "DROP INDEX items_child; DROP INDEX items_listed; DROP INDEX items_recent; DROP INDEX "
        "items_seq; DROP INDEX items_blob; DROP INDEX items_received; DROP INDEX transfers_key; DROP INDEX "
        "transfers_waiting; PRAGMA user_version=2;";
    const std::string toVersion1 = toVersion2 + "DROP TABLE item_journal; PRAGMA user_version=1;";
    const std::string toHalf =
        toVersion1 + "DROP TABLE pinned; DROP INDEX transfers_dedupe; PRAGMA user_version=0;";
    const auto whole = schemaOf(tables);
    int number = 0;
    for (const std::string& older : {std::string("new"), toHalf, toVersion1, toVersion2}) {
        const auto start = folder / std::to_string(number++);
        if (older != "new") {
            LocalIndex(start).upsert(fileItem("kept", "r"));
            SQLiteDatabase(start).execute(older);
        }
        const auto copy = folder / "copy.sqlite";
        StatementFailure failure;
        const int questions = failEach(
            failure,
            [&] {
                std::filesystem::remove(copy);
                if (older != "new")
                    std::filesystem::copy_file(start, copy);
                const LocalIndex opened(copy);
            },
            [&](bool) {
                LocalIndex again(copy);
                SQLiteDatabase repaired(copy);
                EXPECT_EQ(schemaOf(repaired), whole);
                EXPECT_EQ(repaired.userVersion(), IndexSchema::currentVersion);
                EXPECT_EQ(again.counts().files, older == "new" ? 0 : 1);
            });
        EXPECT_GT(questions, 10) << older;
    }
}

TransferRecord transfer(const std::string& id, TransferRecord::State state = TransferRecord::State::pending) {
    TransferRecord record;
    record.id = id;
    record.state = state;
    return record;
}

TEST_F(LocalIndexFailure, OperationThatFailsAnywhereHasChangedNothing) {
    StatementFailure failure;
    LocalIndex hooked(url);
    const auto record = transfer("t");
    const std::map<std::string, std::function<void()>> operations{
        {"move", [&] { hooked.upsert(fileItem("f", "elsewhere", 7)); }},
        {"several", [&] { hooked.upsert({{fileItem("f", "elsewhere", 7), fileItem("g", "r", 8)}}); }},
        {"purge", [&] { hooked.purge("f", 7); }},
        {"insert", [&] { hooked.insertTransfer(record, "pending"); }},
        {"insert as queue",
         [&] { hooked.insertTransfer(record, "running", LocalIndex::WhileRunning::insertWithoutKey); }},
        {"retry", [&] { hooked.retryFailedTransfers(); }},
        {"move base", [&] { hooked.moveBase("r", "a", "b"); }},
        {"remove base", [&] { hooked.removeBase("r", "a", true); }},
        {"log", [&] { hooked.log("upload", "again"); }},
        {"reset", [&] { hooked.reset(); }},
    };
    for (const auto& [name, operation] : operations) {
        SCOPED_TRACE(name);
        index.reset();
        index.upsert(fileItem("f", "r"));
        for (const auto* path : {"a", "a/x", "a/y"})
            index.setBase("r", {.relPath = path, .itemId = path, .sha256 = {}});
        using enum TransferRecord::State;
        for (const auto& [id, state] :
             {std::pair("pending", pending), {"running", running}, {"failed", failed}, {"failed2", failed}})
            index.insertTransfer(transfer(id, state), id);
        tables.execute("UPDATE transfers SET dedupe_key='failed' WHERE state=2");
        index.log("upload", "first");
        const auto before = contentOf(tables);
        failEach(failure, operation, [&](bool failed) { EXPECT_EQ(contentOf(tables) == before, failed); });
    }
}

TEST_F(LocalIndexFailure, NewerVersionOpensAndItsTablesAreLeftAlone) {
    tables.execute("CREATE TABLE of_tomorrow (a); INSERT INTO of_tomorrow VALUES (1); DROP INDEX items_seq; "
                   "PRAGMA user_version=9");
    LocalIndex older(url);
    older.upsert(fileItem("f", "r"));
    older.reset();
    EXPECT_EQ(tables.userVersion(), 9);
    EXPECT_THAT(tables.query("SELECT * FROM of_tomorrow"), SizeIs(1));
    EXPECT_THAT(tables.query("SELECT * FROM sqlite_master WHERE name='items_seq'"), IsEmpty());
}

TEST_F(LocalIndexFailure, DamagedPagesAreReportedNotRead) {
    const auto damaged = folder / "damaged.sqlite";
    LocalIndex(damaged).upsert(fileItem("f", "r"));
    const auto page = SQLiteDatabase(damaged)
                          .query("SELECT rootpage FROM sqlite_master WHERE name='items'")
                          .at(0)
                          .intValue("rootpage");
    std::fstream file(damaged, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp((*page - 1) * 4096);
    file << std::string(4096, '\x55');
    file.close();
    LocalIndex opened(damaged);
    EXPECT_THROW(std::ignore = opened.items(-1, -1), SQLiteError);
    EXPECT_EQ(IndexInspector(damaged).problems().at(0).what, "The file is damaged.");
}

TEST_F(LocalIndexFailure, ReaderOfAnotherProcessMissesNoChange) {
    ChildProcess writer({builtProgram("korvane-test-writer").string(), "change", url.string(), "3000"});
    std::map<std::string, std::optional<std::string>> mirror; // item to parent, as "changes since" tells
    std::int64_t cursor = 0;
    const auto follow = [&] {
        const auto upTo = index.maxItemSeq();
        const auto items = index.items(cursor, -1);
        for (const auto& entry : index.journalEntries(cursor, upTo))
            mirror.erase(entry.itemId);
        for (const auto& item : items)
            mirror.insert_or_assign(item.id, item.parentId);
        cursor = std::max(cursor, upTo);
    };
    int rounds = 0;
    while (cursor < 3001 && ++rounds < 1'000'000)
        follow();
    EXPECT_EQ(writer.wait(), 0);
    std::map<std::string, std::optional<std::string>> actual;
    for (const auto& item : index.items(-1, -1))
        actual.emplace(item.id, item.parentId);
    EXPECT_EQ(mirror, actual);
    EXPECT_GT(rounds, 1);
    EXPECT_THAT(IndexInspector(url).problems(), SizeIs(1)) << "only that the folders are unknown";
}

} // namespace
} // namespace Korvane::Testing
