#include "KorvaneCommand/terminal/Completions.hpp"

namespace Korvane::Completions {

namespace {

using CommandTree::Command;
using CommandTree::Option;

// COMP_WORDS holds "=" of --option=value as a word of its own.
constexpr const char* head = R"sh(# bash completion of korvane
_korvane() {
    local current=${COMP_WORDS[COMP_CWORD]} command=korvane option= position=0 word words= paths=
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $word == = ]]; then continue; fi
        if [[ $option ]]; then option=; continue; fi
        case "$command $word" in
)sh";

constexpr const char* middle = R"sh(            *" "-*) ;;
            *) ((++position)) ;;
        esac
    done
    if [[ $option && $current == = ]]; then current=; fi
    if [[ $option ]]; then
        case $option in
)sh";

constexpr const char* options = R"sh(        esac
    elif [[ $current == -* ]]; then
        case $command in
)sh";

constexpr const char* arguments = R"sh(        esac
    else
        case "$command $position" in
)sh";

constexpr const char* tail = R"sh(        esac
    fi
    if [[ $paths ]]; then
        compopt -o filenames 2>/dev/null # elsewhere than in a completion there are no options
        mapfile -t COMPREPLY < <(compgen "$paths" -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    fi
}
complete -F _korvane korvane
)sh";

std::string entry(const std::string& pattern, const std::string& action) {
    return "            " + pattern + ") " + action + " ;;\n";
}

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

std::string anyOf(const std::string& command, const Option& option) {
    std::string pattern;
    for (const auto& name : option.names) {
        pattern += pattern.empty() ? "\"" : "|\"";
        pattern += command;
        pattern += " " + name + "\"";
    }
    return pattern;
}

/// What offers the option's values; empty when there is nothing to offer.
std::string offer(const Option& option) {
    switch (option.completion) {
    case Option::Completion::values:
        return "words='" + CLI::detail::join(option.values, " ") + "'";
    case Option::Completion::files:
        return "paths=-f";
    case Option::Completion::folders:
        return "paths=-d";
    case Option::Completion::nothing:
        break;
    }
    return "";
}

std::string namesOf(const std::vector<Command>& commands) {
    std::string names;
    for (const auto& command : commands)
        names += (names.empty() ? "" : " ") + command.name;
    return names;
}

std::string namesOf(const std::vector<Option>& all) {
    std::string names;
    for (const auto& option : all)
        names += (names.empty() ? "" : " ") + CLI::detail::join(option.names, " ");
    return names;
}

std::string argumentEntries(const Command& command) {
    if (!command.subcommands.empty())
        return entry(quoted(command.path + " 0"), "words='" + namesOf(command.subcommands) + "'");
    std::string entries;
    for (std::size_t index = 0; index < command.arguments.size(); ++index) {
        const auto& argument = command.arguments[index];
        const auto found = offer(argument);
        const auto pattern = argument.isRepeatable ? quoted(command.path + " ") + "*"
                                                   : quoted(command.path + " " + std::to_string(index));
        if (!found.empty())
            entries += entry(pattern, found);
    }
    return entries;
}

} // namespace

std::string bash(const Command& program) {
    std::string walk;
    std::string values;
    std::string names;
    std::string places;
    for (const auto* command : CommandTree::all(program)) {
        for (const auto& sub : command->subcommands)
            walk += entry(quoted(sub.path), "command=" + quoted(sub.path));
        for (const auto& option : command->options) {
            if (option.placeholder.empty())
                continue;
            walk += entry(anyOf(command->path, option), "option=\"$command $word\"");
            if (const auto found = offer(option); !found.empty())
                values += entry(anyOf(command->path, option), found);
        }
        names += entry(quoted(command->path), "words='" + namesOf(command->options) + "'");
        places += argumentEntries(*command);
    }
    return head + walk + middle + values + options + names + arguments + places + tail;
}

} // namespace Korvane::Completions
