#include "KorvaneCommand/terminal/CommandTree.hpp"

namespace Korvane::CommandTree {

namespace {

/// The names in a set as the parser describes it: "TEXT:{a,b}".
std::vector<std::string> valuesIn(const std::string& typeName) {
    const auto open = typeName.find(":{");
    const auto close = typeName.find('}');
    if (open == std::string::npos || close == std::string::npos)
        return {};
    return CLI::detail::split(typeName.substr(open + 2, close - open - 2), ',');
}

std::string placeholderFor(const std::string& type) {
    return type == "INT" || type == "UINT" || type == "FLOAT" ? "NUMBER" : type;
}

Option::Completion completionFor(const Option& option, const std::string& type) {
    if (!option.values.empty())
        return Option::Completion::values;
    if (type == fileType)
        return Option::Completion::files;
    return type == folderType ? Option::Completion::folders : Option::Completion::nothing;
}

Option readOption(const CLI::Option& source) {
    Option option;
    for (const auto& name : source.get_snames())
        option.names.push_back("-" + name);
    for (const auto& name : source.get_lnames())
        option.names.push_back("--" + name);
    option.about = source.get_description();
    option.byDefault = source.get_default_str();
    option.isRequired = source.get_required();
    option.isRepeatable = source.get_expected_max() >= CLI::detail::expected_max_vector_size;
    if (source.get_type_size() == 0)
        return option;
    const auto typeName = source.get_type_name();
    const auto type = typeName.substr(0, typeName.find(':'));
    option.values = valuesIn(typeName);
    option.completion = completionFor(option, type);
    option.placeholder = source.get_positional() ? source.get_name(true) : placeholderFor(type);
    return option;
}

/// The options of `app` and of its nameless parts, which only bundle options.
void readOptions(Command& command, const CLI::App& app) {
    const auto isOwn = [&](const CLI::Option* option) {
        return !option->get_group().empty() && (!app.get_name().empty() || option != app.get_help_ptr());
    };
    for (const auto* option : app.get_options())
        if (isOwn(option))
            (option->get_positional() ? command.arguments : command.options).push_back(readOption(*option));
    for (const auto* part : app.get_subcommands([](const CLI::App* sub) { return sub->get_name().empty(); }))
        readOptions(command, *part);
}

/// The parser hands a command's footer down to those below it.
std::string ownFooter(const CLI::App& app) {
    const auto* parent = app.get_parent();
    const auto footer = app.get_footer();
    return parent == nullptr || footer == parent->get_footer() ? "" : footer;
}

Command readCommand(const CLI::App& app, const std::string& above) {
    Command command;
    command.name = app.get_name();
    command.path = above + command.name;
    command.about = app.get_description();
    command.details = ownFooter(app);
    command.group = app.get_group();
    command.needsSubcommand = app.get_require_subcommand_min() > 0;
    readOptions(command, app);
    for (const auto* sub : app.get_subcommands({}))
        if (!sub->get_name().empty() && !sub->get_group().empty())
            command.subcommands.push_back(readCommand(*sub, command.path + " "));
    return command;
}

void collect(const Command& command, std::vector<const Command*>& found) {
    found.push_back(&command);
    for (const auto& sub : command.subcommands)
        collect(sub, found);
}

std::string pathAbove(const CLI::App& app) {
    const auto* parent = app.get_parent();
    return parent == nullptr ? "" : pathAbove(*parent) + parent->get_name() + " ";
}

} // namespace

Command read(const CLI::App& app) {
    return readCommand(app, pathAbove(app));
}

std::vector<const Command*> all(const Command& command) {
    std::vector<const Command*> found;
    collect(command, found);
    return found;
}

std::string usage(const Command& command, const std::string& ellipsis) {
    auto text = command.path + (command.options.empty() ? "" : " [OPTION" + ellipsis + "]");
    for (const auto& argument : command.arguments) {
        const auto name = argument.placeholder + (argument.isRepeatable ? ellipsis : "");
        text += argument.isRequired ? " " + name : " [" + name + "]";
    }
    if (!command.subcommands.empty())
        text += command.needsSubcommand ? " COMMAND" : " [COMMAND]";
    return text;
}

std::string heading(const Option& option) {
    auto text = CLI::detail::join(option.names, ", ");
    if (!text.empty() && !option.placeholder.empty())
        text += " ";
    return text + option.placeholder;
}

std::string sentence(const Option& option) {
    auto text = option.about;
    if (!option.values.empty())
        text += " (" + CLI::detail::join(option.values, ", ") + ")";
    if (!option.byDefault.empty())
        text += " (default: " + option.byDefault + ")";
    return text;
}

} // namespace Korvane::CommandTree
