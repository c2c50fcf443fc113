#include "KorvaneCommand/terminal/Completions.hpp"

namespace Korvane::Completions {

namespace {

using CommandTree::Command;
using CommandTree::Option;

constexpr const char* head = R"sh(# fish completion of korvane

# Whether these commands were typed, and so many words of no option after them: exactly, or "at least" with a "+".
function __korvane_at
    set -l count $argv[1]
    set -l path $argv[2..]
    set -l words
    for word in (commandline -opc)[2..]
        string match -q -- '-*' $word; or set -a words $word
    end
    set -l further (math (builtin count $words) - (builtin count $path))
    test $further -ge 0; or return 1
    if test (builtin count $path) -gt 0
        test "$words[1..$(builtin count $path)]" = "$path"; or return 1
    end
    if string match -q -- '*+' $count
        test $further -ge (string trim -c + $count)
    else
        test $further -eq $count
    end
end

complete -c korvane -f
)sh";

std::string quoted(const std::string& text) {
    return "'" +
           CLI::detail::find_and_replace(CLI::detail::find_and_replace(text, "\\", "\\\\"), "'", "\\'") + "'";
}

/// A completion offered after the command and `count` words more.
std::string offered(const Command& command, const std::string& count) {
    const auto space = command.path.find(' ');
    const auto words = space == std::string::npos ? "" : command.path.substr(space);
    return "complete -c korvane -n " + quoted("__korvane_at " + count + words);
}

/// The values of an option or argument, exclusively.
std::string values(const Option& option) {
    switch (option.completion) {
    case Option::Completion::values:
        return " -x -a " + quoted(CLI::detail::join(option.values, " "));
    case Option::Completion::files:
        return " -r -F";
    case Option::Completion::folders:
        return " -x -a '(__fish_complete_directories (commandline -ct | string replace -r \"^--[^=]*=\" "
               "\"\"))'";
    case Option::Completion::nothing:
        break;
    }
    return " -x";
}

std::string optionLine(const Command& command, const Option& option) {
    auto text = offered(command, command.subcommands.empty() ? "0+" : "0");
    for (const auto& name : option.names)
        text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    if (!option.placeholder.empty())
        text += values(option);
    return text + " -d " + quoted(option.about) + "\n";
}

std::string argumentLine(const Command& command, std::size_t index) {
    const auto& argument = command.arguments[index];
    if (argument.completion == Option::Completion::nothing)
        return "";
    const auto offer = values(argument);
    // Options' values count as words too, so an argument is offered from its place on.
    return offered(command, std::to_string(index) + "+") +
           (argument.completion == Option::Completion::files ? " -F" : " -f" + offer.substr(3)) + "\n";
}

} // namespace

std::string fish(const Command& program) {
    std::string text = head;
    for (const auto* command : CommandTree::all(program)) {
        for (const auto& sub : command->subcommands)
            text += offered(*command, "0") + " -a " + sub.name + " -d " + quoted(sub.about) + "\n";
        for (const auto& option : command->options)
            text += optionLine(*command, option);
        for (std::size_t index = 0; command->subcommands.empty() && index < command->arguments.size();
             ++index)
            text += argumentLine(*command, index);
    }
    return text;
}

} // namespace Korvane::Completions
