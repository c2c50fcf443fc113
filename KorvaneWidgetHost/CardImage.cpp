#include "KorvaneWidgetHost/CardImage.hpp"

#include "KorvaneWidgetHost/Picture.hpp"

#include <cairo-svg.h>

namespace Korvane {

namespace {

cairo_status_t append(void* target, const unsigned char* bytes, unsigned int size) {
    static_cast<std::string*>(target)->append(reinterpret_cast<const char*>(bytes), size);
    return CAIRO_STATUS_SUCCESS;
}

void require(cairo_status_t status) {
    if (status != CAIRO_STATUS_SUCCESS)
        throw CardImageError(std::string("The widget could not be drawn: ") + cairo_status_to_string(status));
}

void paint(cairo_surface_t* surface, const WidgetTimeline& timeline, const CardOptions& options, int scale) {
    cairo_t* context = cairo_create(surface);
    cairo_scale(context, scale, scale);
    paintCard(context, timeline, timeline.entries.front(), options);
    const auto status = cairo_status(context);
    cairo_destroy(context);
    require(status);
}

} // namespace

std::string cardPNG(const WidgetTimeline& timeline, const CardOptions& options, int scale) {
    const auto size = CardStyle::cardSize(timeline.family);
    const CairoSurface surface(cairo_image_surface_create(
        CAIRO_FORMAT_ARGB32, static_cast<int>(size.width) * scale, static_cast<int>(size.height) * scale));
    paint(surface.get(), timeline, options, scale);
    std::string png;
    require(cairo_surface_write_to_png_stream(surface.get(), append, &png));
    return png;
}

std::string cardSVG(const WidgetTimeline& timeline, const CardOptions& options, int scale) {
    const auto size = CardStyle::cardSize(timeline.family);
    std::string svg;
    const CairoSurface surface(
        cairo_svg_surface_create_for_stream(append, &svg, size.width * scale, size.height * scale));
    cairo_svg_surface_set_document_unit(surface.get(), CAIRO_SVG_UNIT_PX);
    paint(surface.get(), timeline, options, scale);
    cairo_surface_finish(surface.get());
    require(cairo_surface_status(surface.get()));
    return svg;
}

} // namespace Korvane
