#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/StatusDatabase.hpp"
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

/// What the container keeps of the account: its user in the index, and how many paths have a state.
std::pair<std::optional<std::string>, std::size_t> keptData() {
    LocalIndex index(SharedContainer::databaseURL());
    SQLiteDatabase status(SharedContainer::statusDatabaseURL());
    return {index.value("accountUserId"), status.query("SELECT path FROM status").size()};
}

TEST(AccountCommands, DataOfAnAccountEndsWithItsSignInButNotWithARevocation) {
    LocalService service;
    const auto signUp = [&](const std::string& email) {
        ChildProcess process(
            {"/bin/sh", "-c",
             R"(printf 'pass word\n' | exec "$0" sign-up "$1" --service "$2" --password-fd 0)",
             builtProgram("korvane").string(), email, service->baseURL()});
        return process.wait();
    };
    const NotificationCenter notifications(SharedContainer::notificationFolder());
    const auto fill = [&] {
        EXPECT_EQ(runProgram("korvane", {"sync", "list"}).exitCode, 0);
        StatusDatabase(SharedContainer::statusDatabaseURL(), notifications).set(PathStatus::synced, "/a");
    };
    EXPECT_EQ(signUp("ann@example.org"), 0);
    fill();
    const auto ann = keptData();
    EXPECT_TRUE(ann.first);

    service->faults().add("GET /v1/devices",
                          Fault::Answer{401, R"({"error":{"code":"device_revoked"}})", {}});
    ChildProcess revoked(
        {"/bin/sh", "-c", "exec \"$0\" devices list 2>&1", builtProgram("korvane").string()});
    EXPECT_EQ(revoked.readAll(),
              "korvane: this device is signed out; sign in again with: korvane sign-in "
              "ann@example.org\nkorvane: This device was revoked. Sign in again to continue.\n");
    EXPECT_EQ(readFile(SharedContainer::location() / "keychain.json", 1000), "{}");
    EXPECT_EQ(keptData(), ann) << "for when she signs in again";

    EXPECT_EQ(signUp("cem@example.org"), 0);
    EXPECT_EQ(runProgram("korvane", {"sync", "list"}).exitCode, 0);
    EXPECT_NE(keptData().first, ann.first);
    EXPECT_EQ(keptData().second, 0U);

    fill();
    EXPECT_EQ(runProgram("korvane", {"sign-out"}).exitCode, 0);
    EXPECT_EQ(keptData(), std::pair(std::optional<std::string>(), std::size_t{0}));
}

} // namespace
} // namespace Korvane::Testing
