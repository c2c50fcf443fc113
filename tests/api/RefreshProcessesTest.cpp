#include "tests/api/ClientFixture.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/LoopbackServer.hpp"

#include <set>

namespace Korvane {
namespace {

using Testing::ChildProcess;
using Testing::LoopbackServer;

class RefreshProcessesTest : public Testing::ClientFixture {};

/// The server takes a refresh token once and refuses it from then on, as it would one that was stolen.
TEST_F(RefreshProcessesTest, ThreeWithAStaleTokenRefreshItOnceAndAllStaySignedIn) {
    const auto now =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch());
    const auto expiring = [&](std::int64_t seconds) {
        const auto claims = R"({"exp":)" + std::to_string(now.count() + seconds) + "}";
        return "e30." + KRCrypto::base64URLString(KRCrypto::asBytes(claims)) + ".sig";
    };
    const auto fresh = expiring(3600);
    Mutex mutex; // the server answers on a thread of its own
    std::set<std::string> usable;
    int refreshed = 0;
    LoopbackServer server([&](const LoopbackServer::Request& request) -> LoopbackServer::Answer {
        const MutexLock lock(mutex);
        if (request.target() == "/v1/auth/refresh") {
            ++refreshed;
            const auto token = KRJSON::read<RefreshRequest>(request.body()).refreshToken;
            if (usable.erase(std::string(token.text())) == 0)
                return {.status = 401};
            usable.insert("r2");
            return {.body = pairBody(fresh, "r2")};
        }
        if (request["Authorization"] != "Bearer " + fresh)
            return {.status = 401};
        return {.body = R"({"user":{"id":"u","email":"e","rootFolderId":"r"},)"
                        R"("device":{"id":"d","name":"n","platform":"web"}})"};
    });
    // Once it is about to expire by its own account, once only the server knows that it is not good any more.
    for (const auto& stale : {expiring(-5), expiring(600)}) {
        {
            const MutexLock lock(mutex);
            usable = {"r1"};
            refreshed = 0;
        }
        store(stale, "r1");
        const std::vector<std::string> command{Testing::builtProgram("korvane-test-client").string(),
                                               server.url(), (folder_ / "keychain.json").string()};
        std::array<ChildProcess, 3> processes{ChildProcess(command), ChildProcess(command),
                                              ChildProcess(command)};
        for (auto& process : processes)
            ASSERT_EQ(process.readLine(), "ready");
        for (auto& process : processes)
            process.closeInput();
        for (auto& process : processes) {
            EXPECT_EQ(process.readAll(), "signed in as u\nsigned in as u\n");
            EXPECT_EQ(process.wait(), 0);
        }
        const MutexLock lock(mutex);
        EXPECT_EQ(refreshed, 1);
    }
}

} // namespace
} // namespace Korvane
