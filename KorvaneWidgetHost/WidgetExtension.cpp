#include "KorvaneWidgetHost/WidgetExtension.hpp"

#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Bundle.hpp"

#include <glib.h>

#include <array>
#include <cstdlib>
#include <memory>

namespace Korvane::WidgetExtension {

namespace {

constexpr int usageError = 2;

std::string program() {
    const char* configured = std::getenv("KORVANE_WIDGET_EXTENSION");
    if (configured != nullptr && *configured != '\0')
        return configured;
    return programPath().parent_path() / "korvane-widget";
}

/// Runs the extension and returns what it prints; its own messages go where this program's go.
std::string output(const std::string& request, const std::string& kind, const std::string& family) {
    const std::string path = program();
    std::array<const char*, 6> arguments = {path.c_str(), request.c_str(), kind.c_str(),
                                            "--family",   family.c_str(),  nullptr};
    gchar* printed = nullptr;
    GError* error = nullptr;
    int status = 0;
    const bool started =
        g_spawn_sync(nullptr, const_cast<gchar**>(arguments.data()), nullptr, G_SPAWN_CHILD_INHERITS_STDIN,
                     nullptr, nullptr, &printed, nullptr, &status, &error) != FALSE;
    if (!started) {
        const std::unique_ptr<GError, decltype(&g_error_free)> owned(error, &g_error_free);
        throw WidgetExtensionError(
            "The widget extension could not be started: " + std::string(owned->message), 1);
    }
    const std::unique_ptr<gchar, decltype(&g_free)> owned(printed, &g_free);
    GError* failure = nullptr;
    if (g_spawn_check_wait_status(status, &failure) != FALSE)
        return printed;
    const bool refused = failure->domain == G_SPAWN_EXIT_ERROR && failure->code == usageError;
    g_error_free(failure);
    throw WidgetExtensionError(refused ? "The widget extension refused the request."
                                       : "The widget extension failed.",
                               refused ? usageError : 1);
}

} // namespace

WidgetTimeline timeline(const std::string& kind, const std::string& family) {
    const auto printed = output("timeline", kind, family);
    try {
        auto timeline = KRJSON::read<WidgetTimeline>(printed);
        if (timeline.entries.empty())
            throw JSONError("WidgetTimeline.entries: expected at least one");
        return timeline;
    } catch (const JSONError& error) {
        throw WidgetExtensionError(std::string("The widget extension printed no timeline: ") + error.what(),
                                   1);
    }
}

} // namespace Korvane::WidgetExtension
