#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

/// The commands as help, man page and completions see them: one reading of the parser's own tree.
namespace Korvane::CommandTree {

struct Option {
    /// What completes the value.
    enum class Completion { nothing, values, files, folders };

    std::vector<std::string> names; ///< such as "-h" and "--help"; none for a positional argument
    std::string placeholder;        ///< of its value, such as "FOLDER"; empty for a flag
    std::string about;
    std::string byDefault;           ///< empty when there is none to tell
    std::vector<std::string> values; ///< all it may have, where they can be counted
    Completion completion = Completion::nothing;
    bool isRequired = false;
    bool isRepeatable = false;
};

struct Command {
    std::string path;    ///< from the program on, such as "korvane sync add"
    std::string name;    ///< its last word
    std::string about;   ///< one line
    std::string details; ///< further lines; may be empty
    std::string group;   ///< what it belongs to in the help
    std::vector<Option> options;
    std::vector<Option> arguments; ///< positional, in their order
    std::vector<Command> subcommands;
    bool needsSubcommand = false;
};

/// The type names that an option's `type_name` may say for its value to be completed as a path here.
inline constexpr const char* fileType = "FILE";
inline constexpr const char* folderType = "DIR";

/// `app` and what is below it. What belongs to the group "" is left out.
[[nodiscard]] Command read(const CLI::App& app);

/// `command` and everything below it, each after the one it belongs to.
[[nodiscard]] std::vector<const Command*> all(const Command& command);

/// How it is called: "korvane sync add [OPTION…] FOLDER", with `ellipsis` for "…".
[[nodiscard]] std::string usage(const Command& command, const std::string& ellipsis);

/// Its names and its value: "--to FOLDER"; of an argument its placeholder.
[[nodiscard]] std::string heading(const Option& option);

/// What it is, its values and its default: a sentence without a full stop.
[[nodiscard]] std::string sentence(const Option& option);

} // namespace Korvane::CommandTree
