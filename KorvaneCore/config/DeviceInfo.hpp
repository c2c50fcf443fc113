#pragma once

#include <optional>
#include <string>
#include <string_view>

/// What this device is called and how a list of devices shows it. Callable from any thread. What reads or
/// writes the preferred name throws what the shared defaults throw.
namespace Korvane::DeviceInfo {

inline constexpr std::string_view displayNameKey = "deviceDisplayName";

/// What this client reports of itself to the service.
inline constexpr std::string_view platform = "macos";

/// The preferred name, else macDefaultName().
[[nodiscard]] std::string currentDeviceName();

/// The computer's user-visible name.
[[nodiscard]] std::string macDefaultName();

/// Stores the name without white space around it; a blank name brings back the default.
void setPreferredName(std::string_view name);

/// A name that says no more than the kind of device: blank, "iPhone", "iPad", "iPod touch" or "Mac" in any
/// case, or what mobileDefaultName makes of these.
[[nodiscard]] bool isGenericName(std::string_view name);

/// The name a phone or tablet starts with: the system's own when the user gave it one, else "iPhone" or
/// "iPad", told apart by the first four characters of the vendor id when there is one: "iPad (1A2B)".
[[nodiscard]] std::string mobileDefaultName(std::string_view systemName, bool isPad,
                                            const std::optional<std::string>& vendorId);

/// The symbol of a device in the list, by its name and the platform it reported.
[[nodiscard]] std::string symbol(std::string_view deviceName, std::string_view devicePlatform);

} // namespace Korvane::DeviceInfo
