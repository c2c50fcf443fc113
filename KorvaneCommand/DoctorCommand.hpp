#pragma once

#include <CLI/CLI.hpp>

namespace Korvane {

void addDoctorCommand(CLI::App& app, int& status);

} // namespace Korvane
