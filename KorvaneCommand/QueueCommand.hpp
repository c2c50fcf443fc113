#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

/// Adds `korvane queue`: the transfers, and what to do with them. `status` outlives the parse and receives
/// the exit code.
void addQueueCommand(CLI::App& app, int& status);

/// Adds `korvane activity`: what was uploaded and downloaded lately.
void addActivityCommand(CLI::App& app, int& status);

} // namespace Korvane
