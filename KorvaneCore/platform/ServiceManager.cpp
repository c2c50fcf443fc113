#include "KorvaneCore/platform/ServiceManager.hpp"

#include "KorvaneCore/platform/FileDescriptor.hpp"
#include "KorvaneCore/platform/Log.hpp"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <system_error>

namespace Korvane::ServiceManager {

namespace {

/// An address in the file system, or after "@" one that only the kernel knows.
bool isAddress(std::string_view name) {
    return name.size() < sizeof(sockaddr_un::sun_path) && (name.starts_with('/') || name.starts_with('@'));
}

void tell(const std::string& message) {
    const char* configured = std::getenv("NOTIFY_SOCKET");
    const std::string_view name = configured == nullptr ? "" : configured;
    if (name.empty())
        return;
    if (!isAddress(name)) {
        Log::warning("service-manager", "NOTIFY_SOCKET names no socket");
        return;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::ranges::copy(name, address.sun_path);
    if (name.front() == '@')
        address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    const FileDescriptor fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd.isOpen() || ::sendto(fd.get(), message.data(), message.size(), MSG_NOSIGNAL,
                                 reinterpret_cast<const sockaddr*>(&address), size) < 0)
        Log::warning("service-manager", "cannot be told: " + std::generic_category().message(errno));
}

} // namespace

void ready(std::string_view status) {
    tell("READY=1\nSTATUS=" + std::string(status));
}

void status(std::string_view text) {
    tell("STATUS=" + std::string(text));
}

void stopping() {
    tell("STOPPING=1");
}

} // namespace Korvane::ServiceManager
