#pragma once

#include "KorvaneCommand/terminal/CommandTree.hpp"

#include <string>

/// What a shell reads to complete the program's commands, options, values and local paths.
namespace Korvane::Completions {

[[nodiscard]] std::string bash(const CommandTree::Command& program);
[[nodiscard]] std::string zsh(const CommandTree::Command& program);
[[nodiscard]] std::string fish(const CommandTree::Command& program);

} // namespace Korvane::Completions
