#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

/// Adds every command of `korvane` to the program's `app`, with its help. A command that ran leaves its exit
/// code in `status`; both outlive the parsing.
void addCommands(CLI::App& app, int& status);

} // namespace Korvane
