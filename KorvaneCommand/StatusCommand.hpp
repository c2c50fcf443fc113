#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

/// Adds `korvane status`: the sync state of paths and folders. `status` outlives the parse and receives the
/// exit code.
void addStatusCommand(CLI::App& app, int& status);

} // namespace Korvane
