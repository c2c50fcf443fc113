// `korvane index` as a person runs it.
#include "KorvaneCore/config/SharedContainer.hpp"
#include "tests/storage/IndexFixture.hpp"
#include "tests/support/ChildProcess.hpp"

namespace Korvane::Testing {
namespace {

using testing::HasSubstr;

struct IndexCommand : testing::Test {
    TemporaryContainer container;

    static ProgramResult run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "index");
        return runProgram("korvane", std::move(arguments));
    }

    static LocalIndex fill() {
        LocalIndex index(SharedContainer::databaseURL());
        auto file = fileItem("f", "d");
        file.name = "Plan\x1b[31m.txt";
        file.mtime = IndexItem::Date(std::chrono::seconds(1'700'000'000));
        index.upsert({{folderItem("r", {}), folderItem("d", "r"), file}});
        return LocalIndex(SharedContainer::databaseURL());
    }
};

TEST_F(IndexCommand, WithoutAnIndexFailsAndCreatesNothing) {
    for (const auto& command :
         std::vector<std::vector<std::string>>{{"stats"}, {"search", "a"}, {"list"}, {"verify"}})
        EXPECT_EQ(run(command).exitCode, 1);
    EXPECT_EQ(run({"list", "--unknown"}).exitCode, 2);
    EXPECT_FALSE(std::filesystem::exists(container.path()));
}

TEST_F(IndexCommand, ListsAndFindsByPathWithoutSteeringTheTerminal) {
    const auto index = fill();
    const std::string line = "            10  2023-11-14 22:13  /d/Plan?[31m.txt\n";
    EXPECT_EQ(run({"list", "/D/"}).output, line);
    EXPECT_EQ(run({"search", "PLAN"}).output, line);
    EXPECT_EQ(run({"list"}).output, "        folder                    /d/\n");
    EXPECT_EQ(run({"list", "--json"}).output, R"([{"id":"d","path":"/d","isFolder":true,"size":0}])"
                                              "\n");
    EXPECT_EQ(run({"search", "nothing", "--json"}).output, "[]\n");
    EXPECT_EQ(run({"list", "/x"}).exitCode, 1);
}

TEST_F(IndexCommand, CountsAndVerifies) {
    auto index = fill();
    EXPECT_THAT(run({"stats", "--json"}).output,
                HasSubstr(R"("files":1,"folders":2,"bytes":10,"trashed":0,"maxItemSeq":1)"));
    EXPECT_THAT(run({"stats"}).output, HasSubstr("Files      1 (10 bytes)\n"));
    EXPECT_EQ(run({"verify"}).output, "The local index is sound.\n");
    EXPECT_EQ(run({"verify", "--json"}).output, "{\"ok\":true,\"problems\":[]}\n");

    index.upsert({{folderItem("x", "y"), folderItem("y", "x"), fileItem("o", "lost"), fileItem("in", "f"),
                   fileItem("n", "r", -1)}});
    index.setValue("12a", "lastSeq");
    index.purge("d", 9);
    index.upsert(folderItem("d", "r", 3));
    SQLiteDatabase(index.url()).execute("INSERT INTO item_journal(seq,item_id,kind) VALUES(0,'odd',7)");
    const auto found = run({"verify", "--json"});
    EXPECT_EQ(found.exitCode, 1);
    EXPECT_EQ(
        found.output,
        R"({"ok":false,"problems":[)"
        R"({"what":"Items lie in a folder the index does not know.","count":1,"examples":["o"]},)"
        R"({"what":"Items lie in a file.","count":1,"examples":["in"]},)"
        R"({"what":"Items lie in folders that lie in each other.","count":2,"examples":["x","y"]},)"
        R"({"what":"Items have a negative sequence number.","count":1,"examples":["n"]},)"
        R"({"what":"The cursor in the change feed is no number.","count":1,"examples":["12a"]},)"
        R"({"what":"The journal has a newer change of an item than the item itself.","count":1,"examples":["d"]},)"
        R"({"what":"The journal has entries of an unknown kind.","count":1,"examples":["odd"]}]})"
        "\n");
}

} // namespace
} // namespace Korvane::Testing
