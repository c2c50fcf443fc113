// What a service manager hears of real processes.
#include "KorvaneCore/platform/FileDescriptor.hpp"
#include "tests/support/LocalService.hpp"
#include "tests/support/PasswordInput.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <csignal>

namespace Korvane::Testing {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

/// The manager's socket.
class Manager {
public:
    explicit Manager(const std::string& name) : fd_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::ranges::copy(name, address.sun_path);
        if (name.starts_with('@'))
            address.sun_path[0] = '\0';
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        if (::bind(fd_.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0)
            throw std::runtime_error("no socket");
    }

    /// The next message; empty when none comes.
    [[nodiscard]] std::string hear() const {
        constexpr int patience = 20'000; // ms
        std::array<char, 512> buffer{};
        pollfd waiting{fd_.get(), POLLIN, 0};
        if (::poll(&waiting, 1, patience) <= 0)
            return "";
        const auto size = ::recv(fd_.get(), buffer.data(), buffer.size(), 0);
        return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
    }

private:
    FileDescriptor fd_;
};

TEST(ServiceManager, HearsWhenTheServiceListensAndWhenItStops) {
    const TemporaryFolder folder;
    const std::string names[] = {(folder / "notify").string(), "@" + (folder / "notify").string()};
    for (const auto& name : names) {
        const Manager manager(name);
        const ScopedEnvironment socket("NOTIFY_SOCKET", name);
        ChildProcess service({builtProgram("korvane").string(), "service", "--port", "0", "--data",
                              (folder / "data").string()});
        EXPECT_THAT(manager.hear(), StartsWith("READY=1\nSTATUS=Listening on http://127.0.0.1:"));
        service.signal(SIGTERM);
        EXPECT_EQ(manager.hear(), "STOPPING=1");
        EXPECT_EQ(service.wait(), 0);
    }
}

TEST(ServiceManager, HearsHowTheMirroringGoes) {
    LocalService service;
    EXPECT_EQ(runProgram("korvane", {"run"}).exitCode, 3) << "nobody is signed in";
    ASSERT_EQ(withPassword({"sign-up", "ann@example.org", "--service", service->baseURL()}).exitCode, 0);
    const TemporaryFolder folder;
    const Manager manager((folder / "notify").string());
    const ScopedEnvironment socket("NOTIFY_SOCKET", (folder / "notify").string());
    ChildProcess running({builtProgram("korvane").string(), "run"});
    EXPECT_EQ(manager.hear(), "READY=1\nSTATUS=Mirroring");
    EXPECT_EQ(manager.hear(), "STATUS=0 transfers run, 0 wait, 0 failed");
    running.signal(SIGTERM);
    EXPECT_EQ(manager.hear(), "STOPPING=1");
    EXPECT_EQ(running.wait(), 0);

    // A first pull that does not end is neither waited for at the start nor at the end.
    service->faults().add("GET /v1/changes", Fault::Hold{}, 1, 100);
    ChildProcess waiting({builtProgram("korvane").string(), "run"});
    EXPECT_EQ(manager.hear(), "READY=1\nSTATUS=Mirroring");
    waiting.signal(SIGTERM);
    EXPECT_EQ(manager.hear(), "STOPPING=1");
    EXPECT_EQ(waiting.wait(), 0);
    service->faults().release();
    service->faults().clear();

    service->faults().add("GET /v1/changes",
                          Fault::Answer{401, R"({"error":{"code":"device_revoked"}})", {}});
    EXPECT_EQ(runProgram("korvane", {"run", "--once"}).exitCode, 3) << "the sign-in was withdrawn";
}

TEST(ServiceManager, AWrongSocketStopsNothing) {
    const TemporaryFolder folder;
    for (const auto& name : {std::string("relative"), (folder / "nobody").string(), std::string(300, '/')}) {
        const ScopedEnvironment socket("NOTIFY_SOCKET", name);
        ChildProcess service({builtProgram("korvane").string(), "service", "--port", "0", "--data",
                              (folder / "data").string()});
        EXPECT_THAT(service.readLine(), HasSubstr("Listening on"));
        service.signal(SIGTERM);
        EXPECT_EQ(service.wait(), 0);
    }
}

} // namespace
} // namespace Korvane::Testing
