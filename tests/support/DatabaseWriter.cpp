// The second process of tests on databases: `korvane-test-writer add|hold|fill|change FILE NUMBER`. Prints
// what it has reached; an SQLiteError is printed and ends it with 1.

#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/SQLiteDatabase.hpp"
#include "KorvaneCore/storage/SQLiteError.hpp"

#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

using namespace Korvane;

namespace {

/// Adds 1 to the counter in `rounds` transactions.
void add(SQLiteDatabase& database, int rounds) {
    database.execute("CREATE TABLE IF NOT EXISTS counter (n INTEGER NOT NULL)");
    for (int round = 0; round < rounds; ++round) {
        database.transaction([](SQLiteDatabase& open) {
            const auto rows = open.query("SELECT n FROM counter");
            if (rows.empty())
                open.run("INSERT INTO counter VALUES(1)");
            else
                open.run("UPDATE counter SET n=?", rows.front().intValue("n").value_or(0) + 1);
        });
    }
}

/// Writes so many rows in a transaction it holds until its input ends, most of them past the page cache into
/// the file.
void hold(SQLiteDatabase& database, int rows) {
    database.execute("PRAGMA cache_size=1; BEGIN IMMEDIATE");
    for (int row = 0; row < rows; ++row)
        database.run("INSERT INTO log VALUES(?)", std::string(2000, 'x'));
    std::puts("writing");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
}

/// Writes rows, printing "row" for each, until no file may grow beyond `bytes`.
[[noreturn]] void fill(SQLiteDatabase& database, int bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{static_cast<rlim_t>(bytes), static_cast<rlim_t>(bytes)};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0)
        std::abort();
    while (true) {
        database.run("INSERT INTO log VALUES(?)", std::string(2000, 'x'));
        std::puts("row");
    }
}

/// Creates, moves and purges items of a local index, so many times, and then creates a last one.
void change(const char* file, int changes) {
    LocalIndex index(file);
    std::minstd_rand random(static_cast<unsigned>(changes));
    IndexItem item;
    for (item.seq = 1; item.seq <= changes; ++item.seq) {
        item.id = std::to_string(random() % 100);
        item.parentId = "folder " + std::to_string(random() % 3);
        if (random() % 4 == 0)
            index.purge(item.id, item.seq);
        else
            index.upsert(item);
    }
    item.id = "last";
    index.upsert(item);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4)
        return 2;
    const std::string_view mode = argv[1];
    const int number = std::atoi(argv[3]);
    try {
        if (mode == "change") {
            change(argv[2], number);
            return 0;
        }
        SQLiteDatabase database(argv[2]);
        if (mode == "add")
            add(database, number);
        else if (mode == "hold")
            hold(database, number);
        else if (mode == "fill")
            fill(database, number);
        return 0;
    } catch (const SQLiteError& error) {
        std::puts(error.what());
        return 1;
    }
}
