#pragma once

#include <string>
#include <string_view>

namespace Korvane {

/// `text` without white space and newlines (Unicode's White_Space) at either end. Expects UTF-8.
[[nodiscard]] std::string_view trimmed(std::string_view text) noexcept;

/// A to Z become a to z; other bytes stay.
[[nodiscard]] std::string asciiLowerCased(std::string_view text);

} // namespace Korvane
