#pragma once

#include <string>
#include <string_view>

namespace Korvane::BuildChannel {

/// "staging" or "debug" when the bundle identifier has such a component (staging first), else empty.
[[nodiscard]] std::string_view of(std::string_view bundleIdentifier) noexcept;

/// The running program's channel.
[[nodiscard]] std::string_view current();

} // namespace Korvane::BuildChannel
