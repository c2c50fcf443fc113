#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/StatusDatabase.hpp"
#include "tests/support/LocalService.hpp"
#include "tests/support/PasswordInput.hpp"

#include <gtest/gtest.h>

namespace Korvane::Testing {
namespace {

TEST(AccountCommands, SignUpShowsTheCodeOnceAndLeavesNoSecretInTheOpen) {
    LocalService service;
    const auto signUp =
        withPassword({"sign-up", "ann@example.org", "--service", service->baseURL(), "--json"});
    EXPECT_EQ(signUp.exitCode, 0);
    const auto answer = KRJSON::parse(signUp.output).as_object();
    EXPECT_EQ(answer.at("recoveryCode").as_string().size(), 64U);
    EXPECT_EQ(answer.at("email").as_string(), "ann@example.org");

    const auto whoami = runProgram("korvane", {"whoami"});
    EXPECT_EQ(whoami.exitCode, 0);
    EXPECT_TRUE(whoami.output.starts_with("Signed in as ann@example.org")) << whoami.output;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(service.container()))
        if (entry.is_regular_file())
            EXPECT_EQ(entry.status().permissions() & std::filesystem::perms(077),
                      std::filesystem::perms::none)
                << entry.path();
    service->faults().add(
        "GET /v1/devices",
        Fault::Answer{400, R"({"error":{"code":"bad_request","message":"\u001b[2Jdone\r\n"}})", {}});
    ChildProcess hostile(
        {"/bin/sh", "-c", "exec \"$0\" devices list 2>&1", builtProgram("korvane").string()});
    EXPECT_EQ(hostile.readAll(), "korvane: Bad request: ?[2Jdone??\n")
        << "the service does not steer the terminal";
    EXPECT_EQ(runProgram("korvane", {"sign-out", "--json"}).output, "{\"signedOut\":\"ann@example.org\"}\n");
    EXPECT_EQ(runProgram("korvane", {"whoami"}).exitCode, 3) << "someone must sign in";
    EXPECT_EQ(runProgram("korvane", {"sign-in"}).exitCode, 2);
}

TEST(AccountCommands, ASignInThatIsRefusedLeavesTheDeviceAndItsServiceAsTheyWere) {
    LocalService service;
    const std::string elsewhere = "http://127.0.0.1:1";
    ASSERT_EQ(withPassword({"sign-up", "ann@example.org", "--service", service->baseURL()}).exitCode, 0);
    for (const auto* way : {"sign-up", "sign-in"})
        EXPECT_EQ(withPassword({way, "cem@example.org", "--service", elsewhere}).output,
                  "korvane: This device is signed in already. Sign out first.\n");
    EXPECT_EQ(runProgram("korvane", {"recover", "cem@example.org", "--service", elsewhere}).exitCode, 1);
    EXPECT_EQ(runProgram("korvane", {"pair", "start", "--service", elsewhere}).exitCode, 1);
    EXPECT_EQ(runProgram("korvane", {"devices", "list"}).exitCode, 0) << "at its own service";

    EXPECT_EQ(runProgram("korvane", {"sign-out"}).exitCode, 0);
    EXPECT_EQ(withPassword({"sign-in", "ann@example.org", "--service", elsewhere}).exitCode, 1);
    EXPECT_EQ(withPassword({"sign-in", "ann@example.org"}).exitCode, 0) << "at the service it had";
}

TEST(AccountCommands, ADamagedKeychainIsKeptBesideTheNextSignInAndInNobodysWay) {
    LocalService service;
    const auto keychain = SharedContainer::location() / "keychain.json";
    ASSERT_EQ(withPassword({"sign-up", "ann@example.org", "--service", service->baseURL()}).exitCode, 0);
    writeFile(keychain, "{");
    EXPECT_EQ(runProgram("korvane", {"whoami"}).exitCode, 3);
    EXPECT_EQ(withPassword({"sign-in", "ann@example.org"}).exitCode, 0);
    EXPECT_EQ(runProgram("korvane", {"whoami"}).exitCode, 0);
    writeFile(keychain, "[");
    EXPECT_EQ(runProgram("korvane", {"sign-out"}).exitCode, 0);
    EXPECT_EQ(readFile(keychain, 10), "{}");
    EXPECT_EQ(readFile(keychain.string() + ".damaged", 10), "{");
    EXPECT_EQ(readFile(keychain.string() + ".damaged.2", 10), "[");
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
        return withPassword({"sign-up", email, "--service", service->baseURL()}).exitCode;
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
