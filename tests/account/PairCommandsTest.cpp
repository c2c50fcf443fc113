#include "KorvaneCore/json/KRJSON.hpp"
#include "tests/support/LocalService.hpp"
#include "tests/support/PasswordInput.hpp"

#include <gtest/gtest.h>

namespace Korvane::Testing {
namespace {

/// A line that a program printed, as an object.
boost::json::object step(ChildProcess& process) {
    return KRJSON::parse(process.readLine()).as_object();
}

std::string text(const boost::json::object& object, const char* key) {
    return std::string(object.at(key).as_string());
}

/// A signed-in device and a new one, each with a container of its own.
class PairCommands : public testing::Test {
protected:
    PairCommands() {
        EXPECT_EQ(withPassword({"sign-up", "ann@example.org", "--service", service_->baseURL()}).exitCode, 0);
    }

    std::unique_ptr<ChildProcess> started() {
        const ScopedEnvironment elsewhere("XDG_DATA_HOME", newHome_.path().string());
        return std::make_unique<ChildProcess>(std::vector<std::string>{
            korvane_, "pair", "start", "--json", "--name", "Ann's laptop", "--service", service_->baseURL()});
    }

    [[nodiscard]] bool isNewDeviceSignedIn() const {
        const ScopedEnvironment elsewhere("XDG_DATA_HOME", newHome_.path().string());
        return runProgram("korvane", {"whoami"}).exitCode == 0;
    }

    std::string korvane_ = builtProgram("korvane").string();
    LocalService service_;
    TemporaryFolder newHome_;
};

TEST_F(PairCommands, TwoDevicesPairWithTheDigitsTypedOver) {
    const auto fresh = started();
    ChildProcess approver({korvane_, "pair", "approve", text(step(*fresh), "code"), "--digits", "--json"});
    EXPECT_EQ(text(step(approver), "deviceName"), "Ann's laptop");
    approver.writeLine(text(step(*fresh), "digits"));
    EXPECT_EQ(text(step(approver), "step"), "done");
    EXPECT_EQ(approver.wait(), 0);
    EXPECT_FALSE(isNewDeviceSignedIn());
    fresh->writeLine("y");
    EXPECT_EQ(text(step(*fresh), "email"), "ann@example.org");
    EXPECT_EQ(fresh->wait(), 0);
    EXPECT_TRUE(isNewDeviceSignedIn());
}

TEST_F(PairCommands, ADeclineOnEitherSideLeavesTheNewDeviceWithoutATrace) {
    for (const bool approverDeclines : {true, false}) {
        const auto fresh = started();
        ChildProcess approver({korvane_, "pair", "approve", text(step(*fresh), "code"), "--json"});
        EXPECT_EQ(text(step(approver), "digits"), text(step(*fresh), "digits"));
        approver.writeLine(approverDeclines ? "" : "y");
        EXPECT_EQ(approver.wait(), approverDeclines ? 1 : 0);
        fresh->writeLine(approverDeclines ? "y" : ""); // declined there, a pairing ends here too
        EXPECT_EQ(fresh->wait(), 1);
        EXPECT_TRUE(std::filesystem::is_empty(newHome_.path()));
    }
}

} // namespace
} // namespace Korvane::Testing
