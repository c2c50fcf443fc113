#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

/// Adds "pair start" and "pair approve". `status` receives what the program is to exit with.
void addPairCommands(CLI::App& app, int& status);

} // namespace Korvane
