#include "KorvaneCore/json/KRJSON.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/LocalService.hpp"

#include <gtest/gtest.h>

namespace Korvane::Testing {
namespace {

TEST(ShareCommands, ALinkIsPrintedOnceAndOpensWithoutAnAccount) {
    LocalService service;
    TemporaryFolder folder;
    TemporaryFolder guestHome;
    writeFile(folder / "note.txt", "hello");
    static constexpr const char* script =
        R"(printf 'pass\n' | exec "$0" sign-up ann@example.org --service "$1" --password-fd 0)";
    ChildProcess signUp({"/bin/sh", "-c", script, builtProgram("korvane").string(), service->baseURL()});
    static_cast<void>(signUp.readAll());
    ASSERT_EQ(signUp.wait(), 0);
    ASSERT_EQ(runProgram("korvane", {"upload", folder / "note.txt"}).exitCode, 0);

    const auto created =
        runProgram("korvane", {"share", "create", "note.txt", "--expires", "2099-12-24", "--json"});
    ASSERT_EQ(created.exitCode, 0);
    const auto json = KRJSON::parse(created.output).as_object();
    const std::string link(json.at("link").as_string());
    const std::string id(json.at("id").as_string());
    EXPECT_EQ(runProgram("korvane", {"share", "list"}).output.find('#'), std::string::npos);
    EXPECT_NE(runProgram("korvane", {"share", "list", "--show-links"}).output.find(link), std::string::npos);
    {
        const ScopedEnvironment elsewhere("XDG_DATA_HOME", guestHome.path().string());
        const auto into = folder / "into";
        EXPECT_EQ(runProgram("korvane", {"share", "open", link, into}).exitCode, 1) << "of another service";
        EXPECT_EQ(
            runProgram("korvane", {"share", "open", link, into, "--service", service->baseURL()}).output,
            (into / "note.txt").string() + "\n");
        EXPECT_TRUE(std::filesystem::is_empty(guestHome.path())) << "an outsider keeps nothing";
    }
    EXPECT_EQ(runProgram("korvane", {"share", "revoke", id}).exitCode, 0);
    EXPECT_EQ(runProgram("korvane", {"share", "open", link, folder / "later"}).exitCode, 1);
    EXPECT_EQ(runProgram("korvane", {"share", "create", "note.txt", "--expires", "soon"}).exitCode, 1);
}

} // namespace
} // namespace Korvane::Testing
