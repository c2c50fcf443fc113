#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

/// Adds "share create", "share list", "share revoke" and "share open". `status` receives what the program is
/// to exit with.
void addShareCommands(CLI::App& app, int& status);

} // namespace Korvane
