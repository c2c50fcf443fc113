#include "KorvaneCore/storage/SQLiteDatabase.hpp"

#include "KorvaneCore/storage/SQLiteError.hpp"
#include "tests/support/AllocationCount.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <sqlite3.h>
#include <unistd.h>

#include <functional>
#include <limits>
#include <thread>

namespace Korvane::Testing {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;
using Date = std::chrono::system_clock::time_point;

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

static_assert(SQLBindable<bool> && SQLBindable<std::uint32_t> && SQLBindable<float> && SQLBindable<Bytes>);
static_assert(SQLBindable<std::optional<Date>> && SQLBindable<SQLValue> && SQLBindable<char[4]>);
static_assert(!SQLBindable<std::uint64_t> && !SQLBindable<char> && !SQLBindable<std::vector<SQLValue>>);

struct SQLiteDatabaseTest : testing::Test {
    TemporaryFolder folder;
    SQLiteDatabase database{folder / "test.sqlite"};

    SQLRow one(const std::string& sql) { return database.query(sql).at(0); }

    std::size_t count(const std::string& table) { return database.query("SELECT * FROM " + table).size(); }
};

SQLiteError failure(const std::function<void()>& action) {
    try {
        action();
    } catch (const SQLiteError& error) {
        return error;
    }
    return {0, "nothing was thrown"};
}

TEST_F(SQLiteDatabaseTest, AccessorsReadEachStorageClass) {
    struct Case {
        std::string expression;
        std::optional<std::string> string;
        std::optional<std::int64_t> integer;
        std::optional<double> real;
        bool boolean;
        std::optional<Date> date;
        std::optional<Bytes> data;
    };

    const auto none = std::nullopt;
    const std::vector<Case> cases{
        {"NULL", none, none, none, false, none, none},
        {"0", none, 0, 0.0, false, Date(), none},
        {"9223372036854775807", none, largest, 0x1p63, true, Date(9223372036s), none},
        {"-1", none, -1, -1.0, true, Date(-1s), none},
        {"1.5", none, none, 1.5, false, Date(1500ms), none},
        {"-1e300", none, none, -1e300, false, Date(-9223372036s), none},
        {"''", "", none, none, false, none, none},
        {"'1'", "1", 1, none, true, none, none},
        {"'+42'", "+42", 42, none, true, none, none},
        {"'-0'", "-0", 0, none, false, none, none},
        {"'-9223372036854775808'", "-9223372036854775808", -largest - 1, none, true, none, none},
        {"'9223372036854775808'", "9223372036854775808", none, none, false, none, none},
        {"'4 2'", "4 2", none, none, false, none, none},
        {"' 42'", " 42", none, none, false, none, none},
        {"'+-42'", "+-42", none, none, false, none, none},
        {"'+'", "+", none, none, false, none, none},
        {"'4.0'", "4.0", none, none, false, none, none},
        {"x''", none, none, none, false, none, Bytes{}},
        {"x'31'", none, none, none, false, none, Bytes{0x31}},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.expression);
        const auto row = one("SELECT " + expected.expression + " AS v");
        EXPECT_EQ(row.string("v"), expected.string);
        EXPECT_EQ(row.intValue("v"), expected.integer);
        EXPECT_EQ(row.doubleValue("v"), expected.real);
        EXPECT_EQ(row.boolValue("v"), expected.boolean);
        EXPECT_EQ(row.date("v"), expected.date);
        EXPECT_EQ(row.data("v"), expected.data);
        EXPECT_EQ(row.string("missing"), none);
        EXPECT_EQ(row["missing"], SQLValue());
    }
}

TEST_F(SQLiteDatabaseTest, BoundValuesComeBackAsTheirCase) {
    const std::vector<std::pair<SQLValue, SQLValue>> cases{
        {sqlValue(std::int16_t{-7}), std::int64_t{-7}},
        {sqlValue(true), std::int64_t{1}},
        {sqlValue(false), std::int64_t{0}},
        {sqlValue(1.0), 1.0},
        {sqlValue("naïve"), std::string("naïve")},
        {sqlValue(std::string("a\0b", 3)), std::string("a\0b", 3)},
        {sqlValue("\xff\xc3"), std::string("\xff\xc3")},
        {sqlValue(""), std::string()},
        {sqlValue(Bytes{0, 255}), Bytes{0, 255}},
        {sqlValue(Bytes{}), Bytes{}},
        {sqlValue(Date(1'700'000'000'123ms)), 1'700'000'000.123},
        {sqlValue(sqlValue(5)), std::int64_t{5}},
        {sqlValue(std::optional(true)), std::int64_t{1}},
        {sqlValue(std::optional<std::string>()), std::monostate()},
        {sqlValue(std::nullopt), std::monostate()},
    };
    for (const auto& [bound, expected] : cases)
        EXPECT_EQ(database.query("SELECT ? AS v", bound).at(0)["v"], expected);

    const Date date(1'700'000'000'123'456us);
    EXPECT_EQ(database.query("SELECT ? AS v", date).at(0).date("v"), date);
    const std::vector<SQLValue> array{sqlValue(1), sqlValue("b")};
    const auto row = database.query("SELECT ? AS a, ? AS b, ? AS a, 4 AS a", array).at(0);
    EXPECT_EQ(row.columns(), (std::map<std::string, SQLValue>{{"a", sqlValue(4)}, {"b", array[1]}}));
    EXPECT_EQ(row["a"], sqlValue(4)) << "the later of two columns with one name";
}

TEST_F(SQLiteDatabaseTest, RowsOutliveTheirDatabase) {
    auto other = std::make_unique<SQLiteDatabase>(folder / "other.sqlite");
    const auto rows = other->query("SELECT 'a text longer than most' AS v UNION ALL SELECT x'0102'");
    other.reset();
    EXPECT_EQ(rows.at(0).string("v"), "a text longer than most");
    EXPECT_EQ(rows.at(1).data("v"), (Bytes{1, 2}));
}

TEST_F(SQLiteDatabaseTest, ColumnNamesAreAllocatedOnceForAllRows) {
    if (allocationCount() == 0)
        GTEST_SKIP() << "allocations are not counted under ThreadSanitizer";
    const std::string sql =
        "WITH RECURSIVE t(a_name_too_long_for_a_small_string) AS (SELECT 1 UNION ALL SELECT "
        "a_name_too_long_for_a_small_string + 1 FROM t LIMIT 100000) SELECT * FROM t";
    const std::size_t before = allocationCount();
    const auto rows = database.query(sql);
    EXPECT_LT(allocationCount() - before, 200U);
    ASSERT_EQ(rows.size(), 100'000U);
    EXPECT_EQ(rows.back().intValue("a_name_too_long_for_a_small_string"), 100'000);
}

TEST_F(SQLiteDatabaseTest, OpensWithTheRightPragmas) {
    const auto pragmas = [](SQLiteDatabase& opened) {
        return std::vector{opened.query("PRAGMA journal_mode").at(0)["journal_mode"],
                           opened.query("PRAGMA synchronous").at(0)["synchronous"],
                           opened.query("PRAGMA foreign_keys").at(0)["foreign_keys"],
                           opened.query("PRAGMA busy_timeout").at(0)["timeout"]};
    };
    EXPECT_THAT(pragmas(database), ElementsAre(sqlValue("wal"), sqlValue(1), sqlValue(1), sqlValue(5000)));
    EXPECT_EQ(database.userVersion(), 0);
    database.setUserVersion(3);
    SQLiteDatabase reader(database.url(), true);
    EXPECT_EQ(reader.userVersion(), 3);
    EXPECT_THAT(pragmas(reader), ElementsAre(sqlValue("wal"), sqlValue(2), sqlValue(0), sqlValue(5000)));
}

TEST_F(SQLiteDatabaseTest, FilesAreForTheirOwnerAlone) {
    database.setUserVersion(1);
    for (const auto* suffix : {"", "-wal", "-shm"})
        EXPECT_EQ(std::filesystem::status(database.url().string() + suffix).permissions(),
                  std::filesystem::perms(0600))
            << suffix;
}

TEST_F(SQLiteDatabaseTest, RefusalsCarryCodeAndMessageAndLeaveTheDatabaseOpen) {
    database.execute("CREATE TABLE t (a INTEGER UNIQUE); INSERT INTO t VALUES (1)");
    writeFile(folder / "text.sqlite", std::string(4096, 'x'));
    const auto open = [&](const std::string& name, bool readOnly) {
        return [path = folder / name, readOnly] { const SQLiteDatabase opened(path, readOnly); };
    };
    SQLiteDatabase reader(database.url(), true);
    SQLiteDatabase closed(folder / "closed.sqlite");
    const SQLiteDatabase taker = std::move(closed);
    const std::string full = "INSERT INTO t SELECT value FROM json_each('[7,8,1]')";

    const std::vector<std::tuple<std::string, std::function<void()>, SQLiteError>> cases{
        {"missing, read-only", open("missing", true), {14, "unable to open database file"}},
        {"missing folder", open("missing/x.sqlite", false), {14, "unable to open database file"}},
        {"a folder", open("", false), {14, "unable to open database file"}},
        {"NUL in the name", open(std::string("test.sqlite\0", 12), false), {14, "open failed"}},
        {"no database", open("text.sqlite", false), {26, "file is not a database"}},
        {"syntax", [&] { database.run("SELEC 1"); }, {1, "near \"SELEC\": syntax error"}},
        {"no statement", [&] { database.run("-- nothing"); }, {21, "not an error"}},
        {"more arguments", [&] { database.run("SELECT ?", 1, 2); }, {25, "column index out of range"}},
        {"constraint", [&] { database.run(full); }, {19, "UNIQUE constraint failed: t.a"}},
        {"read-only write", [&] { reader.run(full); }, {8, "attempt to write a readonly database"}},
        // NOLINTNEXTLINE(bugprone-use-after-move): what a move leaves is tested.
        {"closed", [&] { closed.run("SELECT 1"); }, {21, "closed"}},
        {"closed, executed", [&] { closed.execute("SELECT 1"); }, {21, "closed"}},
    };
    for (const auto& [name, action, expected] : cases) {
        const auto error = failure(action);
        EXPECT_EQ(error, expected) << name << ": " << error.what();
        EXPECT_EQ(sqlite3_next_stmt(database.handle(), nullptr), nullptr) << name;
    }
    EXPECT_STREQ(SQLiteError(19, "no").what(), "SQLite error 19: no");
    EXPECT_FALSE(std::filesystem::exists(folder / "missing"));
    EXPECT_EQ(count("t"), 1U);
}

TEST_F(SQLiteDatabaseTest, ReadOnlyFolderIsRefusedAndWorksOnceWritable) {
    using std::filesystem::perms;
    const auto url = folder / "new.sqlite";
    std::filesystem::permissions(folder.path(), perms::owner_read | perms::owner_exec | perms::others_exec);
    const auto user = ::geteuid();
    if (user == 0) // whom no permission stops
        ASSERT_EQ(::seteuid(65534), 0);
    const auto error = failure([&] { const SQLiteDatabase opened(url); });
    ASSERT_EQ(::seteuid(user), 0);
    std::filesystem::permissions(folder.path(), perms::owner_all);
    EXPECT_EQ(error, SQLiteError(14, "unable to open database file"));
    EXPECT_EQ(SQLiteDatabase(url).userVersion(), 0);
}

TEST_F(SQLiteDatabaseTest, TransactionKeepsAllOrNothing) {
    database.execute("CREATE TABLE t (a INTEGER PRIMARY KEY);"
                     "CREATE TABLE u (a INTEGER REFERENCES t(a) DEFERRABLE INITIALLY DEFERRED)");
    const auto insert = [](SQLiteDatabase& open) { return open.run("INSERT INTO t VALUES (1), (2)"); };
    const auto throwing = [&](const std::string& sql) {
        return [&, sql] {
            database.transaction([&](SQLiteDatabase& open) {
                insert(open);
                open.execute(sql);
                throw std::out_of_range("the body's own");
            });
        };
    };
    EXPECT_THROW(throwing("SELECT 1")(), std::out_of_range);
    EXPECT_THROW(throwing("ROLLBACK")(), std::out_of_range) << "though the rollback is refused";
    EXPECT_EQ(failure(throwing("BEGIN")).code(), SQLITE_ERROR);
    const auto orphan = [](SQLiteDatabase& open) { open.run("INSERT INTO u VALUES (9)"); };
    EXPECT_EQ(failure([&] { database.transaction(orphan); }).code(), SQLITE_CONSTRAINT)
        << "found by the commit";
    EXPECT_EQ(count("t") + count("u"), 0U);

    EXPECT_EQ(database.transaction(insert), 2);
    EXPECT_EQ(SQLiteDatabase(database.url(), true).query("SELECT * FROM t").size(), 2U);
}

TEST_F(SQLiteDatabaseTest, TransactionsOfSeveralThreadsDoNotMix) {
    database.execute("CREATE TABLE t (n INTEGER); INSERT INTO t VALUES (0)");
    const auto increment = [](SQLiteDatabase& open) {
        const auto n = open.query("SELECT n FROM t").at(0).intValue("n");
        return open.run("UPDATE t SET n=?", n.value_or(0) + 1);
    };
    {
        std::array<std::jthread, 4> threads;
        for (auto& thread : threads) {
            thread = std::jthread([&] {
                for (int round = 0; round < 50; ++round)
                    EXPECT_EQ(database.transaction(increment), 1);
            });
        }
    }
    EXPECT_EQ(one("SELECT n FROM t").intValue("n"), 200);
}

} // namespace
} // namespace Korvane::Testing
