#include "KorvaneCore/platform/MobileNetwork.hpp"

#include "KorvaneCore/platform/Log.hpp"

#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <exception>
#include <fstream>
#include <memory>

namespace Korvane::MobileNetwork {

namespace {

/// An interface's address as text; empty for one of no network.
std::string textOf(const sockaddr* address) {
    if (address == nullptr || (address->sa_family != AF_INET && address->sa_family != AF_INET6))
        return {};
    const socklen_t size = address->sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    std::array<char, NI_MAXHOST> text{};
    if (::getnameinfo(address, size, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) != 0)
        return {};
    const std::string whole = text.data();
    return whole.substr(0, whole.find('%')); // without the zone of a link-local one
}

bool isMobile(const std::filesystem::path& interface) {
    std::ifstream description(interface / "uevent");
    for (std::string line; std::getline(description, line);)
        if (line == "DEVTYPE=wwan")
            return true;
    return false;
}

} // namespace

bool isUsedBy(const std::string& localAddress, const std::filesystem::path& interfaces) noexcept {
    try {
        ifaddrs* first = nullptr;
        if (::getifaddrs(&first) != 0)
            return false;
        const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> all(first, &::freeifaddrs);
        for (const auto* each = first; each != nullptr; each = each->ifa_next)
            if (textOf(each->ifa_addr) == localAddress && isMobile(interfaces / each->ifa_name))
                return true;
    } catch (const std::exception& error) {
        Log::warning("http", error.what());
    }
    return false;
}

} // namespace Korvane::MobileNetwork
