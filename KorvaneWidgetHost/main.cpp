#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/StandardOutput.hpp"
#include "KorvaneWidgetHost/CardImage.hpp"
#include "KorvaneWidgetHost/WidgetExtension.hpp"
#include "KorvaneWidgetHost/WidgetWindow.hpp"

#include <CLI/CLI.hpp>
#include <sys/stat.h>

#include <cstdio>

namespace {

using namespace Korvane;

constexpr int usageError = 2;

/// What any new file of this user gets. Asked while there is one thread.
mode_t newFileMode() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

struct RenderRequest {
    std::string kind;
    std::string family;
    std::filesystem::path output;
    int scale = 2;
};

int render(const RenderRequest& request, const CardOptions& options) {
    const auto extension = request.output.extension();
    if (extension != ".png" && extension != ".svg") {
        std::fputs("korvane-widget-host: the output must be a .png or .svg file.\n", stderr);
        return usageError;
    }
    const auto timeline = WidgetExtension::timeline(request.kind, request.family);
    const auto picture = extension == ".png" ? cardPNG(timeline, options, request.scale)
                                             : cardSVG(timeline, options, request.scale);
    replaceFile(request.output, picture, newFileMode());
    return 0;
}

int run(int argc, char** argv) {
    CLI::App app("Draws the widgets of the Korvane widget extension.\n"
                 "Exit codes: 0 done, 1 failed, 2 unknown kind, family or option.",
                 "korvane-widget-host");
    app.require_subcommand(1);
    CardOptions options;
    RenderRequest request;
    int status = 0;

    auto* renderCommand = app.add_subcommand("render", "Draw a widget into a file");
    renderCommand->add_option("kind", request.kind, "Kind of the widget, as korvane-widget list prints it")
        ->required();
    renderCommand->add_option("--family", request.family, "small, medium or large")->required();
    renderCommand->add_option("--output", request.output, "FILE.png or FILE.svg")->required();
    renderCommand->add_option("--scale", request.scale, "Pixels a point (default 2)")
        ->check(CLI::Range(1, 3));
    renderCommand->callback([&] { status = render(request, options); });

    auto* showCommand =
        app.add_subcommand("show", "Open a window with both widgets and keep them up to date");
    showCommand->callback([&] { status = showWidgetWindow(options); });

    for (auto* command : {renderCommand, showCommand}) {
        command->add_flag("--dark", options.dark, "Draw for a dark desktop");
        command->add_flag("--locked", options.locked,
                          "Draw as on a locked screen: private parts are redacted");
    }

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
        return exitStatus("korvane-widget-host", run(argc, argv));
    } catch (const WidgetExtensionError& error) {
        // Where the extension refused a kind or family, it has said so itself.
        if (error.exitCode() != usageError)
            std::fprintf(stderr, "korvane-widget-host: %s\n", error.what());
        return error.exitCode();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "korvane-widget-host: %s\n", error.what());
        return 1;
    }
}
