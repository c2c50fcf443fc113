#include "KorvaneCommand/terminal/ParseFailure.hpp"

#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCommand/terminal/CommandTree.hpp"

namespace Korvane {

namespace {

/// The command that the words led to.
const CLI::App& reached(const CLI::App& app) {
    for (const auto* sub : app.get_subcommands())
        if (!sub->get_name().empty())
            return reached(*sub);
    return app;
}

} // namespace

std::string parseFailure(const CLI::App& app, const CLI::ParseError& error) {
    const auto& command = reached(app);
    const auto path = CommandTree::read(command).path;
    const bool lacksCommand = command.get_require_subcommand_min() > 0 && command.get_subcommands().empty();
    const auto unknown = command.remaining();
    std::string text = error.what();
    if (lacksCommand && unknown.empty())
        text = "\"" + path + "\" needs a command";
    else if (lacksCommand)
        text = std::string("there is no ") + (unknown.front().starts_with('-') ? "option" : "command") +
               " \"" + path + " " + unknown.front() + "\"";
    return app.get_name() + ": " + printable(text) + "\nFor more: " + path + " --help\n";
}

} // namespace Korvane
