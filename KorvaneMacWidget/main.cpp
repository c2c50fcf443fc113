#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/StandardOutput.hpp"
#include "KorvaneMacWidget/KorvaneWidgets.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>

namespace {

using namespace Korvane;

constexpr int usageError = 2;

/// Prints the widget bundle: what a gallery shows.
void printList() {
    std::vector<WidgetConfiguration> configurations;
    for (const auto& widget : KorvaneWidgets::all())
        configurations.push_back(widget.configuration);
    std::puts(KRJSON::write(configurations).c_str());
}

/// Prints the rendered timeline, or one sentence when there is no such widget or family.
int printTimeline(const std::string& kind, const std::string& familyName, KorvaneWidgets::Context context) {
    const Widget* widget = KorvaneWidgets::find(kind);
    if (widget == nullptr) {
        std::fprintf(stderr, "korvane-widget: there is no widget of the kind \"%s\".\n", kind.c_str());
        return usageError;
    }
    WidgetFamily family{};
    const bool known = boost::describe::enum_from_string(familyName.c_str(), family);
    if (!known ||
        std::ranges::find(widget->configuration.families, family) == widget->configuration.families.end()) {
        std::fprintf(stderr, "korvane-widget: the widget \"%s\" has no family \"%s\".\n",
                     widget->configuration.displayName.c_str(), familyName.c_str());
        return usageError;
    }
    const auto timeline = KorvaneWidgets::render(*widget, family, context, std::chrono::system_clock::now());
    std::puts(KRJSON::write(timeline).c_str());
    return 0;
}

int run(int argc, char** argv) {
    CLI::App app("The Korvane widget extension. A widget host starts it and draws what it prints as JSON.\n"
                 "Exit codes: 0 done, 1 failed, 2 unknown kind, family or option.",
                 "korvane-widget");
    app.require_subcommand(1);
    std::string kind;
    std::string family;
    int status = 0;

    app.add_subcommand("list", "Print the widgets of the bundle")->callback(printList);
    const auto addContext = [&](const char* name, const char* description, KorvaneWidgets::Context context) {
        auto* command = app.add_subcommand(name, description);
        command->add_option("kind", kind, "Kind of the widget, as list prints it")->required();
        command->add_option("--family", family, "small, medium or large")->required();
        command->callback([&, context] { status = printTimeline(kind, family, context); });
    };
    addContext("timeline", "Print entries, reload date and views", KorvaneWidgets::Context::timeline);
    addContext("snapshot", "Print the entry for a gallery or short display",
               KorvaneWidgets::Context::snapshot);
    addContext("placeholder", "Print the entry that stands in before the first",
               KorvaneWidgets::Context::placeholder);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : usageError;
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return exitStatus("korvane-widget", run(argc, argv));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "korvane-widget: %s\n", error.what());
        return 1;
    }
}
