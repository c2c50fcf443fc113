#pragma once

#include <cairo.h>

#include <memory>
#include <string>

namespace Korvane {

struct CairoSurfaceDeleter {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};

using CairoSurface = std::unique_ptr<cairo_surface_t, CairoSurfaceDeleter>;

/// Decodes a picture into an image surface in its own size; null when it cannot be, which is logged.
[[nodiscard]] CairoSurface loadPicture(const std::string& file);

} // namespace Korvane
