#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

/// Adds `korvane service`: the storage service on this computer, in the foreground. `status` outlives the
/// parse and receives the exit code.
void addServiceCommand(CLI::App& app, int& status);

} // namespace Korvane
