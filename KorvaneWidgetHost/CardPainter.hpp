#pragma once

#include "KorvaneCore/widgetkit/WidgetTimeline.hpp"
#include "KorvaneWidgetHost/CardStyle.hpp"

#include <cairo.h>

#include <string>
#include <vector>

namespace Korvane {

/// A place in the card, in points from its upper left corner.
struct CardRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
};

/// A part of the card that opens a link, and what it says.
struct LinkRegion {
    CardRect area;
    std::string url;
    std::vector<std::string> texts;
};

struct CardOptions {
    bool dark = false;
    bool locked = false; ///< privacy-sensitive parts are drawn redacted
};

/// The entry's view as these options show it.
[[nodiscard]] ViewNode visibleView(const RenderedEntry& entry, const CardOptions& options);

/// Lays out and draws the card of one entry with its upper left corner at the context's origin, one unit a
/// point. Returns the links, later ones over earlier ones. One thread at a time (fonts are Pango's).
std::vector<LinkRegion> paintCard(cairo_t* context, const WidgetTimeline& timeline,
                                  const RenderedEntry& entry, const CardOptions& options);

} // namespace Korvane
