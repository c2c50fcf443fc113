#include "KorvaneCommand/terminal/HelpFormatter.hpp"

#include "KorvaneCommand/terminal/CommandTree.hpp"
#include "KorvaneCommand/terminal/Wrapped.hpp"

#include <algorithm>

namespace Korvane {

namespace {

using CommandTree::Command;

constexpr std::size_t lineWidth = 80;
constexpr std::size_t widestHeading = 26;

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

struct Row {
    std::string heading;
    std::string text;
};

/// A table of headings and what they mean.
std::string table(const std::string& title, const std::vector<Row>& rows) {
    std::size_t width = 0;
    for (const auto& row : rows)
        if (row.heading.size() <= widestHeading)
            width = std::max(width, row.heading.size());
    const auto indent = width + 4;
    auto text = rows.empty() ? "" : "\n" + title + ":\n";
    for (const auto& row : rows) {
        text += padded("  " + row.heading, indent);
        if (row.heading.size() > width)
            text += "\n" + std::string(indent, ' ');
        text += wrapped(row.text, indent);
    }
    return text;
}

std::vector<Row> rowsOf(const std::vector<CommandTree::Option>& options) {
    std::vector<Row> rows;
    rows.reserve(options.size());
    for (const auto& option : options)
        rows.push_back({heading(option), sentence(option)});
    return rows;
}

std::vector<Row> rowsOf(const std::vector<Command>& commands) {
    std::vector<Row> rows;
    rows.reserve(commands.size());
    for (const auto& command : commands)
        rows.push_back({command.name, command.about});
    return rows;
}

/// Down the left column, then down the right one.
std::string columns(const std::vector<std::string>& cells) {
    std::string text;
    const auto rows = (cells.size() + 1) / 2;
    for (std::size_t row = 0; row < rows; ++row) {
        const bool both = row + rows < cells.size();
        text += both ? padded(cells[row], lineWidth / 2) + cells[row + rows] : cells[row];
        text += "\n";
    }
    return text;
}

std::string groups(const Command& program) {
    std::size_t width = 0;
    std::vector<std::string> titles;
    for (const auto& command : program.subcommands) {
        width = std::max(width, command.name.size());
        if (std::ranges::find(titles, command.group) == titles.end())
            titles.push_back(command.group);
    }
    std::string text;
    for (const auto& title : titles) {
        std::vector<std::string> cells;
        std::string wide;
        for (const auto& command : program.subcommands) {
            if (command.group != title)
                continue;
            auto cell = "  " + padded(command.name, width) + " " + command.about;
            if (cell.size() < lineWidth / 2)
                cells.push_back(std::move(cell));
            else
                wide += "  " + padded(command.name, width) + " " + wrapped(command.about, width + 3);
        }
        text += title + ":\n";
        text += columns(cells);
        text += wide;
    }
    return text;
}

std::string programHelp(const Command& program, const CLI::App& app) {
    std::string options;
    for (const auto& option : program.options)
        options += CLI::detail::join(option.names, ", ") + "; ";
    return program.about + " Usage: korvane COMMAND [ARGUMENT...]\n" + groups(program) +
           wrapped("Options: " + options + "of a command: korvane COMMAND --help.") +
           wrapped(app.get_footer());
}

} // namespace

std::string HelpFormatter::make_help(const CLI::App* app, std::string /*name*/,
                                     CLI::AppFormatMode /*mode*/) const {
    const auto command = CommandTree::read(*app);
    if (app->get_parent() == nullptr)
        return programHelp(command, *app);
    auto text = "Usage: " + wrapped(usage(command, "..."), 7) + wrapped(command.about + ".");
    if (!command.details.empty())
        text += wrapped(command.details);
    return text + table("Commands", rowsOf(command.subcommands)) +
           table("Arguments", rowsOf(command.arguments)) + table("Options", rowsOf(command.options));
}

} // namespace Korvane
