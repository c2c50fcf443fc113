#pragma once

#include "KorvaneCommand/terminal/CommandTree.hpp"

#include <string>

namespace Korvane {

/// korvane(1) in man(7)'s language.
[[nodiscard]] std::string manualPage(const CommandTree::Command& program);

} // namespace Korvane
