#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace Korvane {

/// Help within 80 columns. The program's own fits a screen: its commands in two columns, by what they are
/// for; one with a longer description has a line of its own.
class HelpFormatter : public CLI::FormatterBase {
public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
};

} // namespace Korvane
