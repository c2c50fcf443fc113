#include "KorvaneCore/json/KRJSON.hpp"
#include "tests/support/LocalService.hpp"
#include "tests/support/PasswordInput.hpp"

#include <gtest/gtest.h>

namespace Korvane::Testing {
namespace {

TEST(ShareCommands, ALinkIsPrintedOnceAndOpensWithoutAnAccount) {
    LocalService service;
    TemporaryFolder folder;
    TemporaryFolder guestHome;
    writeFile(folder / "note.txt", "hello");
    ASSERT_EQ(withPassword({"sign-up", "ann@example.org", "--service", service->baseURL()}).exitCode, 0);
    ASSERT_EQ(runProgram("korvane", {"upload", folder / "note.txt"}).exitCode, 0);

    const auto created =
        runProgram("korvane", {"share", "create", "note.txt", "--expires", "2099-12-24", "--json"});
    ASSERT_EQ(created.exitCode, 0);
    const auto json = KRJSON::parse(created.output).as_object();
    const std::string link(json.at("link").as_string());
    const std::string id(json.at("id").as_string());
    const auto listed = runProgram("korvane", {"share", "list", "--json"}).output;
    EXPECT_TRUE(KRJSON::parse(listed).as_array().at(0).at("hasKey").as_bool());
    EXPECT_EQ(listed.find(link.substr(link.find('#') + 1)), std::string::npos);
    {
        const ScopedEnvironment elsewhere("XDG_DATA_HOME", guestHome.path().string());
        const auto into = folder / "into";
        EXPECT_EQ(runProgram("korvane", {"share", "open", link, into}).exitCode, 1) << "of another service";
        ChildProcess open(
            {builtProgram("korvane").string(), "share", "open", "-", into, "--service", service->baseURL()});
        open.writeLine(link);
        EXPECT_EQ(open.readAll(), (into / "note.txt").string() + "\n");
        service->faults().add("GET /v1/public/shares/{token}/entries/{entryId}/download",
                              Fault::Answer{500, "", {}}, 1, 100);
        const auto failed =
            runProgram("korvane", {"share", "open", link, into, "--service", service->baseURL(), "--json"});
        EXPECT_EQ(failed.exitCode, 1);
        EXPECT_TRUE(KRJSON::parse(failed.output).as_object().contains("error")) << "and what was placed";
        EXPECT_TRUE(std::filesystem::is_empty(guestHome.path())) << "an outsider keeps nothing";
    }
    EXPECT_EQ(runProgram("korvane", {"share", "revoke", id, "--json"}).output, R"({"id":")" + id + "\"}\n");
    EXPECT_EQ(runProgram("korvane", {"share", "open", link, folder / "later"}).exitCode, 1);
}

} // namespace
} // namespace Korvane::Testing
