#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

/// Adds `korvane index`: what the local index holds, read-only. `status` outlives the parse and receives the
/// exit code.
void addIndexCommand(CLI::App& app, int& status);

} // namespace Korvane
