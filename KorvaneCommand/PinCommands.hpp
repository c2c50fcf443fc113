#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

/// Adds `pin`, `unpin` and `pins`; running one sets `status`.
void addPinCommands(CLI::App& app, int& status);

} // namespace Korvane
