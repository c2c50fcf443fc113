// Help, manual page and completions, held against the parser's own tree and against the shells that read
// them.
#include "KorvaneCommand/Commands.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

namespace Korvane::Testing {
namespace {

using testing::HasSubstr;

std::string document(const std::vector<std::string>& arguments) {
    return runProgram("korvane", arguments).output;
}

/// The options of every command, by its path below the program: "sync add".
std::map<std::string, std::set<std::string>> optionsOf(const CLI::App& app, const std::string& path = "") {
    std::map<std::string, std::set<std::string>> all;
    auto& own = all[path];
    for (const auto* option : app.get_options())
        for (const auto& name : option->get_lnames())
            own.insert(name);
    for (const auto* sub : app.get_subcommands({})) {
        const auto subPath =
            sub->get_name().empty() || path.empty() ? path + sub->get_name() : path + " " + sub->get_name();
        for (const auto& [below, options] : optionsOf(*sub, subPath))
            all[below].insert(options.begin(), options.end());
    }
    return all;
}

/// What lies between the first `from` and the next `to`.
std::string between(const std::string& text, const std::string& from, const std::string& to) {
    const auto begin = text.find(from);
    if (begin == std::string::npos)
        return "";
    const auto end = text.find(to, begin + from.size());
    return text.substr(begin + from.size(), end - begin - from.size());
}

std::set<std::string> lines(const std::string& text) {
    std::set<std::string> found;
    for (const auto& line : CLI::detail::split(text, '\n'))
        if (!line.empty())
            found.insert(line.substr(0, line.find('\t')));
    return found;
}

struct Documents : testing::Test {
    CLI::App app;
    int status = 0;
    TemporaryFolder folder;

    Documents() { addCommands(app, status); }

    std::string saved(const std::string& name, const std::vector<std::string>& arguments) const {
        writeFile(folder / name, document(arguments));
        return (folder / name).string();
    }

    /// What a shell's program prints, given arguments.
    static std::string output(std::vector<std::string> program) {
        program.insert(program.begin(), "/usr/bin/env");
        ChildProcess process(program);
        process.closeInput();
        auto text = process.readAll();
        EXPECT_EQ(process.wait(), 0) << testing::PrintToString(program) << text;
        return text;
    }
};

TEST_F(Documents, HelpFitsAScreenAndNamesEveryCommand) {
    const auto help = document({"--help"});
    EXPECT_LE(std::ranges::count(help, '\n'), 24) << help;
    for (const auto& line : CLI::detail::split(help, '\n'))
        EXPECT_LE(line.size(), 80U) << line;
    for (const auto* command : app.get_subcommands({}))
        EXPECT_THAT(help, HasSubstr("  " + command->get_name() + " "));
    EXPECT_THAT(help, HasSubstr("0 done, 1 failed or partly so, 2 called wrongly, 3 not signed in"));
}

TEST_F(Documents, EveryCommandAndOptionIsInAllOfThem) {
    const auto manual = CLI::detail::find_and_replace(document({"man"}), "\\-", "-") + ".S";
    const auto bash = document({"completions", "bash"});
    const auto zsh = document({"completions", "zsh"});
    const auto fish = document({"completions", "fish"});
    for (const auto& [path, options] : optionsOf(app)) {
        const auto full = path.empty() ? "korvane" : "korvane " + path;
        const auto zshName = "\n_" + CLI::detail::find_and_replace(full, " ", "_") + "() {";
        const auto section = path.empty() ? between(manual, ".SH OPTIONS", ".SH")
                                          : between(manual, ".SS \"" + full + "\"", ".S");
        const auto help = document(CLI::detail::split(path.empty() ? "--help" : path + " --help", ' '));
        std::string fishLines;
        for (const auto& line : CLI::detail::split(fish, '\n'))
            if (line.find(path.empty() ? "__korvane_at 0'" : " " + path + "'") != std::string::npos)
                fishLines += line + "\n";
        for (const auto& option : options) {
            EXPECT_THAT(help, HasSubstr("--" + option)) << full;
            EXPECT_THAT(section, HasSubstr("--" + option)) << full;
            EXPECT_THAT(between(bash, "\"" + full + "\") words='", "'"), HasSubstr("--" + option)) << full;
            EXPECT_THAT(between(zsh, zshName, "\n}"), HasSubstr("--" + option)) << full;
            EXPECT_THAT(fishLines, HasSubstr(" -l " + option)) << full;
        }
    }
}

TEST_F(Documents, WhatAnswersDoesSoInJSONToo) {
    const std::set<std::string> others = {"completions", "man"}; // in a language of their own
    std::set<std::string> without;
    const auto all = optionsOf(app);
    for (const auto& [path, options] : all) {
        const auto next = all.upper_bound(path);
        const bool isGroup = next != all.end() && next->first.starts_with(path + (path.empty() ? "" : " "));
        if (!isGroup && !options.contains("json"))
            without.insert(path);
    }
    EXPECT_EQ(without, others);
}

TEST_F(Documents, AWrongCallIsNamedWithTheHelpThatTellsMore) {
    const std::map<std::string, std::string> errors = {
        {"nosuch", "there is no command \"korvane nosuch\"\nFor more: korvane --help\n"},
        {"share lst", "there is no command \"korvane share lst\"\nFor more: korvane share --help\n"},
        {"--nosuch", "there is no option \"korvane --nosuch\"\nFor more: korvane --help\n"},
        {"sync", "\"korvane sync\" needs a command\nFor more: korvane sync --help\n"},
        {"sync add", "FOLDER is required\nFor more: korvane sync add --help\n"},
    };
    for (const auto& [words, error] : errors) {
        ChildProcess shell(
            {"/bin/sh", "-c", "exec \"$0\" " + words + " 2>&1", builtProgram("korvane").string()});
        EXPECT_EQ(shell.readAll(), "korvane: " + error);
    }
}

TEST_F(Documents, ShellsAndTheManualsReaderAcceptThem) {
    output({"bash", "-n", saved("bash", {"completions", "bash"})});
    output({"zsh", "-n", saved("zsh", {"completions", "zsh"})});
    output({"fish", "-n", saved("fish", {"completions", "fish"})});
    EXPECT_EQ(output({"mandoc", "-Tlint", "-Wall", saved("korvane.1", {"man"})}), "");
}

TEST_F(Documents, BashAndFishCompleteCommandsOptionsValuesAndPaths) {
    writeFile(folder / "files/report.pdf", "");
    writeFile(folder / "files/recent/x", "");
    const auto part = (folder / "files/re").string();
    const std::set<std::string> files = {part + "port.pdf", part + "cent"};

    struct Case {
        std::vector<std::string> words;
        std::set<std::string> expected;
    };

    const std::vector<Case> cases = {
        {{"sync", ""}, {"add", "list", "remove"}},
        {{"sy"}, {"sync"}},
        {{"queue", "--json", "can"}, {"cancel"}},
        {{"sync", "add", "--t"}, {"--to"}},
        {{"queue", "cancel", "--a"}, {"--all"}},
        {{"queue", "metered", ""}, {"automatic", "no", "yes"}},
        {{"upload", part}, files},
        {{"upload", "a", "b", part}, files},
        {{"download", "remote", part}, files},
        {{"download", part}, {}},
        {{"sync", "add", part}, {part + "cent"}},
        {{"service", "--data", part}, {part + "cent"}},
        {{"service", "--port", part}, {}},
        {{"index", "search", "--limit", "3", ""}, {}},
    };
    const auto bash =
        "source " + saved("bash", {"completions", "bash"}) +
        "; COMP_WORDS=(korvane \"$@\"); COMP_CWORD=$#; _korvane; printf '%s\\n' \"${COMPREPLY[@]}\"";
    const auto fish = "source " + saved("fish", {"completions", "fish"}) + "; complete -C \"korvane $argv\"";
    for (const auto& [words, expected] : cases) {
        std::vector<std::string> inBash = {"bash", "--norc", "-c", bash, "bash"};
        inBash.insert(inBash.end(), words.begin(), words.end());
        EXPECT_EQ(lines(output(inBash)), expected) << testing::PrintToString(words);
        std::vector<std::string> inFish = {"fish", "--no-config", "-c", fish};
        inFish.insert(inFish.end(), words.begin(), words.end());
        std::set<std::string> found;
        for (const auto& line : lines(output(inFish)))
            found.insert(line.ends_with('/') ? line.substr(0, line.size() - 1) : line);
        EXPECT_EQ(found, expected) << testing::PrintToString(words);
    }
}

TEST_F(Documents, BashCompletesTheValueAfterAnEqualsSign) {
    writeFile(folder / "data/x", "");
    const auto part = (folder / "da").string();
    const auto script =
        "source " + saved("bash", {"completions", "bash"}) +
        "; COMP_WORDS=(korvane service --data = \"$1\" --js); for COMP_CWORD in 4 5; do _korvane; "
        "printf '%s\\n' \"${COMPREPLY[@]}\"; done";
    EXPECT_EQ(output({"bash", "--norc", "-c", script, "bash", part}), part + "ta\n--json\n");
}

} // namespace
} // namespace Korvane::Testing
