#include "KorvaneCommand/terminal/DocumentCommands.hpp"

#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/terminal/CommandTree.hpp"
#include "KorvaneCommand/terminal/Completions.hpp"
#include "KorvaneCommand/terminal/ManualPage.hpp"

#include <cstdio>
#include <memory>

namespace Korvane {

namespace {

std::string completionsFor(const std::string& shell, const CommandTree::Command& program) {
    if (shell == "bash")
        return Completions::bash(program);
    return shell == "zsh" ? Completions::zsh(program) : Completions::fish(program);
}

} // namespace

void addDocumentCommands(CLI::App& app, int& status) {
    auto* completions = app.add_subcommand("completions", "Completion for a shell");
    completions->footer(
        "For bash: source <(korvane completions bash). An installed korvane needs none of this.");
    const auto shell = std::make_shared<std::string>();
    completions->add_option("SHELL", *shell, "The shell")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
    completions->callback([shell, &app, &status] {
        std::fputs(completionsFor(*shell, CommandTree::read(app)).c_str(), stdout);
        status = ExitCode::done;
    });

    auto* manual = app.add_subcommand("man", "The manual page");
    manual->footer("To read it where it is not installed: korvane man | man -l -");
    manual->callback([&app, &status] {
        std::fputs(manualPage(CommandTree::read(app)).c_str(), stdout);
        status = ExitCode::done;
    });
}

} // namespace Korvane
