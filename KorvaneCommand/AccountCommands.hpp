#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

/// Adds the commands of the account: sign-up, sign-in, sign-out, recover, password, recovery-code, whoami and
/// devices. `status` outlives the parse and receives the exit code.
void addAccountCommands(CLI::App& app, int& status);

} // namespace Korvane
