#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

/// `korvane completions` and `korvane man`, which describe `app`, the program's own.
void addDocumentCommands(CLI::App& app, int& status);

} // namespace Korvane
