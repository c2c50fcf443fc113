#include "KorvaneCore/config/BuildChannel.hpp"

#include "KorvaneCore/platform/Bundle.hpp"

#include <array>

namespace Korvane::BuildChannel {

namespace {

bool hasComponent(std::string_view identifier, std::string_view component) noexcept {
    while (true) {
        const auto end = identifier.find('.');
        if (identifier.substr(0, end) == component)
            return true;
        if (end == std::string_view::npos)
            return false;
        identifier.remove_prefix(end + 1);
    }
}

constexpr std::array<std::string_view, 2> channels = {"staging", "debug"};

} // namespace

std::string_view of(std::string_view bundleIdentifier) noexcept {
    for (const auto channel : channels)
        if (hasComponent(bundleIdentifier, channel))
            return channel;
    return {};
}

std::string_view current() {
    return of(Bundle::main().identifier());
}

} // namespace Korvane::BuildChannel
