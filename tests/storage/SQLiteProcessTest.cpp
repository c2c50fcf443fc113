#include "KorvaneCore/storage/SQLiteDatabase.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <deque>

namespace Korvane::Testing {
namespace {

struct SQLiteProcessTest : testing::Test {
    TemporaryFolder folder;
    std::filesystem::path url = folder / "shared.sqlite";

    std::vector<std::string> writer(const std::string& mode, int number) const {
        return {builtProgram("korvane-test-writer").string(), mode, url.string(), std::to_string(number)};
    }
};

TEST_F(SQLiteProcessTest, WritersThatCreateTheFileTogetherLoseNoUpdate) {
    constexpr int rounds = 100;
    for (int file = 0; file < 10; ++file) {
        url = folder / std::to_string(file);
        std::deque<ChildProcess> writers;
        for (int i = 0; i < 3; ++i)
            writers.emplace_back(writer("add", rounds));
        for (auto& each : writers) {
            EXPECT_EQ(each.readLine(), "");
            EXPECT_EQ(each.wait(), 0);
        }
        const auto rows = SQLiteDatabase(url, true).query("SELECT n FROM counter");
        ASSERT_EQ(rows.size(), 1U);
        EXPECT_EQ(rows[0].intValue("n"), 3 * rounds);
    }
}

TEST_F(SQLiteProcessTest, WriterKilledInATransactionLeavesNothingAndBlocksNobody) {
    SQLiteDatabase database(url);
    database.execute("CREATE TABLE log (text TEXT NOT NULL)");
    for (int kills = 1; kills <= 3; ++kills) {
        ChildProcess killed(writer("hold", 300));
        ASSERT_EQ(killed.readLine(), "writing");
        EXPECT_GT(std::filesystem::file_size(url.string() + "-wal"), 100U * 2000) << "half-written pages";
        killed.signal(SIGKILL);
        EXPECT_EQ(killed.wait(), -SIGKILL);
        database.transaction([](SQLiteDatabase& open) { open.run("INSERT INTO log VALUES('after')"); });
        SQLiteDatabase reopened(url);
        for (auto* reader : {&database, &reopened}) {
            EXPECT_EQ(reader->query("SELECT * FROM log").size(), static_cast<std::size_t>(kills));
            EXPECT_EQ(reader->query("PRAGMA integrity_check").at(0).string("integrity_check"), "ok");
        }
    }
}

TEST_F(SQLiteProcessTest, FullDiskIsReportedAndLosesNoCommittedRow) {
    SQLiteDatabase(url).execute("CREATE TABLE log (text TEXT NOT NULL); INSERT INTO log VALUES('before')");
    ChildProcess full(writer("fill", 200'000));
    std::size_t rows = 1;
    std::string line;
    while ((line = full.readLine()) == "row")
        ++rows;
    EXPECT_EQ(line, "SQLite error 10: disk I/O error");
    EXPECT_EQ(full.wait(), 1);
    SQLiteDatabase database(url);
    EXPECT_GT(rows, 1U);
    EXPECT_EQ(database.query("SELECT * FROM log").size(), rows);
    EXPECT_EQ(database.query("PRAGMA integrity_check").at(0).string("integrity_check"), "ok");
    database.run("INSERT INTO log VALUES('after')");
}

} // namespace
} // namespace Korvane::Testing
