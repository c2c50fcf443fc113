#include "KorvaneWidgetHost/Picture.hpp"

#include "KorvaneCore/platform/Log.hpp"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <cstdint>
#include <cstring>

namespace Korvane {

namespace {

// Far more than any card shows; a header may claim gigabytes.
constexpr std::int64_t maxPixels = 40'000'000;

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};

/// Cairo's form of a pixel: 0xFFRRGGBB in the machine's byte order. Transparency does not count: the pictures
/// of the widget folder are JPEGs.
std::uint32_t opaquePixel(const guchar* channels) {
    return 0xFF000000U | std::uint32_t{channels[0]} << 16 | std::uint32_t{channels[1]} << 8 | channels[2];
}

} // namespace

CairoSurface loadPicture(const std::string& file) {
    int storedWidth = 0;
    int storedHeight = 0;
    const bool known = gdk_pixbuf_get_file_info(file.c_str(), &storedWidth, &storedHeight) != nullptr;
    if (!known || std::int64_t{storedWidth} * storedHeight > maxPixels) {
        Log::warning("widget-host", "cannot draw the picture: no picture, or too large a one");
        return nullptr;
    }
    GError* error = nullptr;
    const std::unique_ptr<GdkPixbuf, Unref> picture(gdk_pixbuf_new_from_file(file.c_str(), &error));
    if (!picture) {
        Log::warning("widget-host", std::string("cannot draw the picture: ") + error->message);
        g_error_free(error);
        return nullptr;
    }
    const int width = gdk_pixbuf_get_width(picture.get());
    const int height = gdk_pixbuf_get_height(picture.get());
    const int channels = gdk_pixbuf_get_n_channels(picture.get());
    CairoSurface surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS)
        return nullptr;

    const guchar* source = gdk_pixbuf_read_pixels(picture.get());
    unsigned char* target = cairo_image_surface_get_data(surface.get());
    for (int y = 0; y < height; ++y) {
        const guchar* row = source + std::ptrdiff_t{y} * gdk_pixbuf_get_rowstride(picture.get());
        unsigned char* line = target + std::ptrdiff_t{y} * cairo_image_surface_get_stride(surface.get());
        for (int x = 0; x < width; ++x) {
            const auto pixel = opaquePixel(row + std::ptrdiff_t{x} * channels);
            std::memcpy(line + std::ptrdiff_t{x} * 4, &pixel, sizeof pixel);
        }
    }
    cairo_surface_mark_dirty(surface.get());
    return surface;
}

} // namespace Korvane
