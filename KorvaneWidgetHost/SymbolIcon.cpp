#include "KorvaneWidgetHost/SymbolIcon.hpp"

#include "KorvaneCore/platform/Log.hpp"

#include <librsvg/rsvg.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <numbers>
#include <optional>
#include <string>
#include <utility>

namespace Korvane::SymbolIcon {

namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 11> icons = {{
    {"doc", "mimetypes/text-x-generic-symbolic"},
    {"doc.richtext", "mimetypes/x-office-document-symbolic"},
    {"eye.slash", "actions/view-conceal-symbolic"},
    {"film", "mimetypes/video-x-generic-symbolic"},
    {"folder.fill", "places/folder-symbolic"},
    {"person.crop.circle", "status/avatar-default-symbolic"},
    {"photo", "mimetypes/image-x-generic-symbolic"},
    {"photo.on.rectangle", "emblems/emblem-photos-symbolic"},
    {"pin", "actions/view-pin-symbolic"},
    {"pin.fill", "actions/view-pin-symbolic"},
    {"waveform", "mimetypes/audio-x-generic-symbolic"},
}};

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};

using Icon = std::unique_ptr<RsvgHandle, Unref>;

/// The icon's file in the first data folder that has it.
std::optional<std::filesystem::path> findIcon(std::string_view name) {
    const char* configured = std::getenv("XDG_DATA_DIRS");
    std::string folders =
        configured != nullptr && *configured != '\0' ? configured : "/usr/local/share:/usr/share";
    folders += ':';
    for (std::size_t begin = 0, end = 0; (end = folders.find(':', begin)) != std::string::npos;
         begin = end + 1) {
        auto file =
            std::filesystem::path(folders.substr(begin, end - begin)) / "icons/Adwaita/scalable" / name;
        file += ".svg";
        std::error_code ignored;
        if (std::filesystem::exists(file, ignored))
            return file;
    }
    return std::nullopt;
}

Icon load(std::string_view symbol) {
    const auto name = iconName(symbol);
    const auto file = name.empty() ? std::nullopt : findIcon(name);
    Icon icon(file ? rsvg_handle_new_from_file(file->c_str(), nullptr) : nullptr);
    if (!icon)
        Log::warning("widget-host", "no icon for the symbol " + std::string(symbol));
    return icon;
}

void drawRing(cairo_t* context, double x, double y, double side) {
    cairo_set_line_width(context, side / 10);
    cairo_new_path(context);
    cairo_arc(context, x + side / 2, y + side / 2, side * 0.4, 0, 2 * std::numbers::pi);
    cairo_stroke(context);
}

} // namespace

std::string_view iconName(std::string_view symbol) {
    const auto* found =
        std::ranges::find(icons, symbol, &std::pair<std::string_view, std::string_view>::first);
    return found == icons.end() ? std::string_view() : found->second;
}

void draw(cairo_t* context, std::string_view symbol, double x, double y, double side,
          const CardStyle::Colour& colour) {
    const auto icon = load(symbol);
    cairo_save(context);
    cairo_set_source_rgba(context, colour.red, colour.green, colour.blue, colour.alpha);
    const RsvgRectangle square{x, y, side, side};
    if (icon) {
        // The icon's own colours do not count: its shape is a mask for ours.
        cairo_push_group(context);
        const bool drawn = rsvg_handle_render_document(icon.get(), context, &square, nullptr) != FALSE;
        cairo_pattern_t* shape = cairo_pop_group(context);
        if (!drawn)
            Log::warning("widget-host", "cannot draw the symbol " + std::string(symbol));
        cairo_set_source_rgba(context, colour.red, colour.green, colour.blue, colour.alpha);
        cairo_mask(context, shape);
        cairo_pattern_destroy(shape);
    } else {
        drawRing(context, x, y, side);
    }
    cairo_restore(context);
}

} // namespace Korvane::SymbolIcon
