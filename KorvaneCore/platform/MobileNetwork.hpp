#pragma once

#include <filesystem>
#include <string>

/// Which of this computer's connections lead over a mobile (wide-area radio) network.
namespace Korvane::MobileNetwork {

/// Whether the local address, in its usual text form, is one of a mobile network's interface. False for an
/// address no interface has. `interfaces` is where the system describes them. Callable from any thread.
[[nodiscard]] bool isUsedBy(const std::string& localAddress,
                            const std::filesystem::path& interfaces = "/sys/class/net") noexcept;

} // namespace Korvane::MobileNetwork
