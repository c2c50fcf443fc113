#include "tests/support/ChildProcess.hpp"
#include "tests/support/LocalService.hpp"

#include <gtest/gtest.h>

namespace Korvane::Testing {
namespace {

TEST(AccountCommands, SignUpShowsTheCodeOnceAndLeavesNoSecretInTheOpen) {
    LocalService service;
    ChildProcess signUp({"/bin/sh", "-c",
                         "printf 'pass word\\n' | exec \"$0\" sign-up ann@example.org --service \"$1\" "
                         "--password-fd 0 --json",
                         builtProgram("korvane").string(), service->baseURL()});
    const auto answer = signUp.readAll();
    EXPECT_EQ(signUp.wait(), 0);
    EXPECT_EQ(answer.size(), std::string(R"({"recoveryCode":""})").size() + 65) << answer;

    const auto whoami = runProgram("korvane", {"whoami"});
    EXPECT_EQ(whoami.exitCode, 0);
    EXPECT_TRUE(whoami.output.starts_with("Signed in as ann@example.org")) << whoami.output;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(service.container()))
        if (entry.is_regular_file())
            EXPECT_EQ(entry.status().permissions() & std::filesystem::perms(077),
                      std::filesystem::perms::none)
                << entry.path();
    EXPECT_EQ(runProgram("korvane", {"sign-out"}).exitCode, 0);
    EXPECT_EQ(runProgram("korvane", {"whoami"}).exitCode, 1);
    EXPECT_EQ(runProgram("korvane", {"sign-in"}).exitCode, 2);
}

} // namespace
} // namespace Korvane::Testing
