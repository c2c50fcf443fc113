#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

/// Adds `korvane widgets`: publishing what the widgets show. `status` outlives the parse and receives the
/// exit code.
void addWidgetsCommand(CLI::App& app, int& status);

} // namespace Korvane
