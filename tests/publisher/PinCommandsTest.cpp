// `korvane pin`, `unpin`, `pins`, `widgets publish --from-index` and `run --once` as a person runs them.
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/widget/WidgetStore.hpp"
#include "tests/support/LocalService.hpp"
#include "tests/support/PasswordInput.hpp"

#include <gtest/gtest.h>

#include <csignal>

namespace Korvane::Testing {
namespace {

namespace fs = std::filesystem;

class PinCommandsTest : public testing::Test {
protected:
    PinCommandsTest() {
        EXPECT_EQ(withPassword({"sign-up", "ann@example.org", "--service", service_->baseURL()}).exitCode, 0);
        writeFile(folder_ / "notes.txt", "remembered");
        EXPECT_EQ(korvane({"upload", folder_ / "notes.txt", "--to", "Papers"}).exitCode, 0);
    }

    static ProgramResult korvane(const std::vector<std::string>& arguments) {
        return runProgram("korvane", arguments);
    }

    static std::string pinnedNames() {
        std::string names;
        for (const auto& pin : WidgetStore::load().value_or(WidgetSnapshot()).pins)
            names += pin.name + (pin.isFolder ? "/ " : " ");
        return names;
    }

    /// What `pins` says once the file is offline, or at last.
    static std::string untilOffline(const std::string& path) {
        std::string output;
        for (int look = 0; look < 200 && output != "offline  " + path + "\n"; ++look)
            output = korvane({"pins"}).output;
        return output;
    }

    LocalService service_;
    TemporaryFolder folder_;
};

TEST_F(PinCommandsTest, PinsAreShownAndKeptOfflineUntilUnpinned) {
    EXPECT_EQ(korvane({"pin", "Papers/notes.txt", "nothing"}).exitCode, 1);
    EXPECT_EQ(korvane({"pins"}).output, "Nothing is pinned.\n");
    EXPECT_EQ(korvane({"pin", "Papers/notes.txt"}).exitCode, 0);
    EXPECT_EQ(pinnedNames(), "notes.txt ");
    EXPECT_EQ(korvane({"pins"}).output, "waiting  Papers/notes.txt\n");
    ChildProcess running({builtProgram("korvane").string(), "run", "--json"});
    EXPECT_EQ(untilOffline("Papers/notes.txt"), "offline  Papers/notes.txt\n");
    EXPECT_EQ(korvane({"unpin", "Papers/notes.txt"}).exitCode, 0);
    EXPECT_EQ(korvane({"pin", "Papers/notes.txt"}).exitCode, 0);
    EXPECT_EQ(untilOffline("Papers/notes.txt"), "offline  Papers/notes.txt\n")
        << "the process that runs has noticed";
    running.signal(SIGINT);
    EXPECT_EQ(running.wait(), 0);

    EXPECT_EQ(korvane({"sync", "add", folder_.path(), "--to", "Papers"}).exitCode, 0);
    EXPECT_EQ(korvane({"pin", folder_.path()}).exitCode, 0);
    EXPECT_EQ(pinnedNames(), "notes.txt Papers/ ");
    EXPECT_EQ(korvane({"widgets", "publish", "--from-index", "--hide"}).exitCode, 0);
    EXPECT_EQ(WidgetStore::load(), WidgetSnapshot::hidden);
    EXPECT_EQ(korvane({"widgets", "publish", "--from-index", "--show"}).output,
              "Published: 2 pinned, no photo.\n");
    EXPECT_EQ(korvane({"unpin", "Papers", folder_ / "notes.txt"}).exitCode, 0);
    EXPECT_EQ(pinnedNames(), "");
    EXPECT_TRUE(fs::is_empty(service_.container() / "Offline"));
    EXPECT_EQ(korvane({"unpin", "Papers"}).exitCode, 1);
    EXPECT_EQ(korvane({"sign-out"}).exitCode, 0);
    EXPECT_EQ(WidgetStore::load(), std::nullopt);
}

TEST_F(PinCommandsTest, RunOnceFailsWhileTransfersArePaused) {
    EXPECT_EQ(korvane({"sync", "add", folder_.path(), "--to", "Mirror"}).exitCode, 0);
    EXPECT_TRUE(KRJSON::parse(korvane({"queue", "pause", "--json"}).output).at("paused").as_bool());
    EXPECT_EQ(korvane({"run", "--once"}).exitCode, 1);
    EXPECT_EQ(korvane({"queue", "resume"}).exitCode, 0);
    const auto sent = korvane({"run", "--once", "--json"});
    EXPECT_EQ(sent.exitCode, 0);
    const auto begin = sent.output.rfind('\n', sent.output.size() - 2) + 1;
    const auto tally = KRJSON::parse(sent.output.substr(begin)).as_object();
    EXPECT_EQ(tally.at("sentFiles").as_int64(), 1);
    EXPECT_GT(tally.at("transferMilliseconds").as_int64(), 0) << "without the wait for what else may come";
}

} // namespace
} // namespace Korvane::Testing
