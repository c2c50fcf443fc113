#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

/// Adds `korvane upload` and `korvane download`: files and folders to and from the account, by hand. `status`
/// outlives the parse and receives the exit code.
void addTransferCommands(CLI::App& app, int& status);

} // namespace Korvane
