#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

/// Adds `korvane sync`: which folders are mirrored; and `korvane run`: mirrors them until interrupted.
/// `status` outlives the parse and receives the exit code.
void addSyncCommands(CLI::App& app, int& status);

} // namespace Korvane
