#include "KorvaneWidgetHost/OpenLink.hpp"

#include "KorvaneCore/platform/Log.hpp"

#include <glib.h>

#include <array>

namespace Korvane {

void openLink(const std::string& url) {
    std::array<const char*, 3> arguments = {"xdg-open", url.c_str(), nullptr};
    GError* error = nullptr;
    if (g_spawn_async(nullptr, const_cast<gchar**>(arguments.data()), nullptr, G_SPAWN_SEARCH_PATH, nullptr,
                      nullptr, nullptr, &error) != FALSE)
        return;
    Log::error("widget-host", std::string("cannot open the link: ") + error->message);
    g_error_free(error);
}

} // namespace Korvane
