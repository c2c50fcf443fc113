#include "KorvaneCore/config/DeviceInfo.hpp"

#include "KorvaneCore/config/SharedDefaults.hpp"
#include "KorvaneCore/config/Text.hpp"
#include "KorvaneCore/platform/ComputerName.hpp"

#include <algorithm>
#include <array>
#include <cctype>

namespace Korvane::DeviceInfo {

namespace {

constexpr std::size_t vendorTagLength = 4;

/// `name` without a vendor tag " (1A2B)" at its end.
std::string_view withoutVendorTag(std::string_view name) {
    constexpr std::size_t length = vendorTagLength + 3;
    if (name.size() <= length || !name.ends_with(')'))
        return name;
    const auto tag = name.substr(name.size() - length);
    const bool isTag =
        tag.starts_with(" (") && std::ranges::all_of(tag.substr(2, vendorTagLength),
                                                     [](unsigned char c) { return std::isxdigit(c) != 0; });
    return isTag ? name.substr(0, name.size() - length) : name;
}

} // namespace

std::string currentDeviceName() {
    const auto stored = SharedDefaults::store().string(displayNameKey);
    const auto name = trimmed(stored ? std::string_view(*stored) : std::string_view());
    return name.empty() ? macDefaultName() : std::string(name);
}

std::string macDefaultName() {
    return computerName();
}

void setPreferredName(std::string_view name) {
    SharedDefaults::store().set(PropertyList{std::string(trimmed(name))}, displayNameKey);
}

bool isGenericName(std::string_view name) {
    constexpr std::array<std::string_view, 5> generic = {"", "iphone", "ipad", "ipod touch", "mac"};
    return std::ranges::find(generic, asciiLowerCased(withoutVendorTag(trimmed(name)))) != generic.end();
}

std::string mobileDefaultName(std::string_view systemName, bool isPad,
                              const std::optional<std::string>& vendorId) {
    if (!isGenericName(systemName))
        return std::string(trimmed(systemName));
    std::string name = isPad ? "iPad" : "iPhone";
    if (!vendorId || vendorId->size() < vendorTagLength)
        return name;

    std::string tag = vendorId->substr(0, vendorTagLength);
    std::ranges::transform(tag, tag.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return name + " (" + tag + ")";
}

std::string symbol(std::string_view deviceName, std::string_view devicePlatform) {
    const auto name = asciiLowerCased(deviceName);
    const auto says = [&](std::string_view word) { return name.find(word) != std::string::npos; };
    if (devicePlatform == "macos") {
        const bool desktop = says("imac") || says("mac mini") || says("mac studio") || says("mac pro");
        return desktop ? "desktopcomputer" : "laptopcomputer";
    }
    if (devicePlatform == "ios") {
        if (says("ipad"))
            return "ipad";
        return says("ipod") ? "ipodtouch" : "iphone";
    }
    return "globe";
}

} // namespace Korvane::DeviceInfo
