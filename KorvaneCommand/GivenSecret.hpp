#pragma once

#include "KorvaneCore/json/SecretText.hpp"

#include <optional>
#include <string_view>

namespace Korvane {

/// A line of the file descriptor, or else of the terminal. Throws SecretInput::Error.
[[nodiscard]] SecretText givenSecret(const std::optional<int>& fd, std::string_view prompt);

/// A password to be: asked for twice on a terminal. Throws UsageError for an empty one and for two that
/// differ.
[[nodiscard]] SecretText chosenPassword(const std::optional<int>& fd);

} // namespace Korvane
