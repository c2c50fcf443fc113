#include "KorvaneCore/media/Thumbnail.hpp"

#include <fmt/format.h>
#include <gdk-pixbuf/gdk-pixbuf.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace Korvane {

namespace {

// A picture is decoded whole before it is scaled: at 3 or 4 bytes a pixel, a large one takes up to 480 MB, so
// that one at a time has to do; a small one up to 48 MB.
constexpr std::int64_t maxPixels = 120'000'000;
constexpr std::int64_t maxSmallPixels = 12'000'000;

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): guards the machine's memory
std::mutex largePictures;

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};

using Pixbuf = std::unique_ptr<GdkPixbuf, Unref>;

/// The system's own message may name the file, which is the user's own; its number does not.
[[noreturn]] void fail(GError* error, std::string what) {
    const std::unique_ptr<GError, decltype(&g_error_free)> owned(error, &g_error_free);
    if (owned)
        what += fmt::format(" ({} {})", g_quark_to_string(owned->domain), owned->code);
    throw ThumbnailError(what);
}

Pixbuf loadAtMost(const std::filesystem::path& file, int maxSide) {
    // Anything else might never end, or never begin.
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(file, ignored))
        throw ThumbnailError("not a file");
    int width = 0;
    int height = 0;
    if (gdk_pixbuf_get_file_info(file.c_str(), &width, &height) == nullptr)
        throw ThumbnailError("not a picture of a known kind");
    if (width <= 0 || height <= 0 || std::int64_t{width} * height > maxPixels)
        throw ThumbnailError("the picture is too large");
    std::unique_lock turn(largePictures, std::defer_lock);
    if (std::int64_t{width} * height > maxSmallPixels)
        turn.lock();
    GError* error = nullptr;
    const bool fits = std::max(width, height) <= maxSide;
    Pixbuf picture(fits ? gdk_pixbuf_new_from_file(file.c_str(), &error)
                        : gdk_pixbuf_new_from_file_at_scale(file.c_str(), maxSide, maxSide, TRUE, &error));
    if (!picture)
        fail(error, "the picture cannot be decoded");
    return picture;
}

/// JPEG has no transparency; what shines through is white.
Pixbuf onWhite(GdkPixbuf* picture) {
    constexpr guint32 white = 0xFFFFFF;
    Pixbuf opaque(gdk_pixbuf_composite_color_simple(picture, gdk_pixbuf_get_width(picture),
                                                    gdk_pixbuf_get_height(picture), GDK_INTERP_NEAREST, 255,
                                                    8, white, white));
    if (!opaque)
        throw ThumbnailError("not enough memory for the picture");
    return opaque;
}

} // namespace

std::string makeThumbnail(const std::filesystem::path& file, int maxSide) {
    const auto stored = loadAtMost(file, maxSide);
    const Pixbuf upright(gdk_pixbuf_apply_embedded_orientation(stored.get()));
    if (!upright)
        throw ThumbnailError("the picture cannot be turned");

    const auto opaque = onWhite(upright.get());

    gchar* bytes = nullptr;
    gsize size = 0;
    GError* error = nullptr;
    if (gdk_pixbuf_save_to_buffer(opaque.get(), &bytes, &size, "jpeg", &error, "quality", "85", nullptr) ==
        FALSE)
        fail(error, "the thumbnail cannot be encoded");
    const std::unique_ptr<gchar, decltype(&g_free)> owned(bytes, &g_free);
    return {bytes, size};
}

} // namespace Korvane
