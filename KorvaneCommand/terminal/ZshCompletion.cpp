#include "KorvaneCommand/terminal/Completions.hpp"

#include <algorithm>

namespace Korvane::Completions {

namespace {

using CommandTree::Command;
using CommandTree::Option;

std::string inQuotes(const std::string& text) {
    return "'" + CLI::detail::find_and_replace(text, "'", "'\\''") + "'";
}

/// Text between the brackets and colons of an option's description.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '[' || c == ']' || c == ':' || c == '\\')
            result += '\\';
        result += c;
    }
    return result;
}

std::string functionOf(const Command& command) {
    auto name = "_" + command.path;
    std::ranges::replace(name, ' ', '_');
    return name;
}

std::string action(const Option& option) {
    switch (option.completion) {
    case Option::Completion::values:
        return "(" + CLI::detail::join(option.values, " ") + ")";
    case Option::Completion::files:
        return "_files";
    case Option::Completion::folders:
        return "_files -/";
    case Option::Completion::nothing:
        break;
    }
    return " ";
}

std::string line(const std::string& text) {
    return " \\\n        " + text;
}

std::string offerOf(const Option& option) {
    const auto about = "[" + escaped(option.about) + "]";
    const auto value =
        option.placeholder.empty() ? "" : ":" + escaped(option.placeholder) + ":" + action(option);
    const auto all = CLI::detail::join(option.names, " ");
    std::string lines;
    for (const auto& name : option.names) {
        auto text = option.isRepeatable ? "*" : "(" + all + ")";
        text += name;
        text += !option.placeholder.empty() && name.starts_with("--") ? "=" : "";
        text += about;
        text += value;
        lines += line(inQuotes(text));
    }
    return lines;
}

std::string argument(const Option& option, std::size_t index) {
    const auto place = option.isRepeatable ? "*" : std::to_string(index + 1);
    const auto optional = option.isRequired || option.isRepeatable ? ":" : "::";
    return line(inQuotes(place + optional + escaped(option.about) + ":" + action(option)));
}

std::string subcommands(const Command& command) {
    std::string list;
    std::string cases;
    for (const auto& sub : command.subcommands) {
        list += "                " + inQuotes(sub.name + ":" + sub.about) + "\n";
        cases += "                " + sub.name + ") " + functionOf(sub) + " && found=0 ;;\n";
    }
    return line(inQuotes("1:command:->command")) + line(inQuotes("*::argument:->argument")) +
           " && found=0\n    case $state in\n        command)\n            local -a commands=(\n" + list +
           "            )\n            _describe -t commands command commands && found=0 ;;\n"
           "        argument)\n            case $words[1] in\n" +
           cases + "            esac ;;\n    esac\n";
}

std::string function(const Command& command) {
    auto text = functionOf(command) + "() {\n    local curcontext=$curcontext state line found=1\n" +
                "    typeset -A opt_args\n    _arguments -C -S";
    for (const auto& option : command.options)
        text += offerOf(option);
    if (!command.subcommands.empty()) {
        text += subcommands(command);
    } else {
        for (std::size_t index = 0; index < command.arguments.size(); ++index)
            text += argument(command.arguments[index], index);
        text += " && found=0\n";
    }
    return text + "    return found\n}\n\n";
}

} // namespace

std::string zsh(const Command& program) {
    std::string text = "#compdef korvane\n# zsh completion of korvane\n\n";
    for (const auto* command : CommandTree::all(program))
        text += function(*command);
    return text + "if [[ $zsh_eval_context[-1] == loadautofunc ]]; then\n    _korvane \"$@\"\nelse\n"
                  "    compdef _korvane korvane\nfi\n";
}

} // namespace Korvane::Completions
