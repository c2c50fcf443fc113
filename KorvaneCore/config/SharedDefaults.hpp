#pragma once

#include "KorvaneCore/config/SharedDefaultsStore.hpp"

#include <memory>

/// The settings all processes share. Callable from any thread.
namespace Korvane::SharedDefaults {

/// The running program's channel of the app group's suite: a property list in the container's
/// "Library/Preferences". Where there is no container, a suite of this program alone. Creates nothing. Throws
/// what SharedContainer::location() throws.
[[nodiscard]] SharedDefaultsStore store();

/// Replaces the suite for tests; null ends that. Set at start-up only.
void setTestOverride(std::shared_ptr<UserDefaults> defaults);
[[nodiscard]] std::shared_ptr<UserDefaults> testOverride();

} // namespace Korvane::SharedDefaults
