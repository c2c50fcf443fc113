#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace Korvane {

/// What was called wrongly, and which command's help tells more: two lines.
[[nodiscard]] std::string parseFailure(const CLI::App& app, const CLI::ParseError& error);

} // namespace Korvane
