#pragma once

#include "KorvaneWidgetHost/CardPainter.hpp"

#include <stdexcept>
#include <string>

namespace Korvane {

/// Cairo could not draw or encode.
class CardImageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The timeline's first entry as a picture with transparent corners, `scale` pixels a point. Throws
/// CardImageError.
[[nodiscard]] std::string cardPNG(const WidgetTimeline& timeline, const CardOptions& options, int scale);

/// The same as an SVG document, `scale` user units a point.
[[nodiscard]] std::string cardSVG(const WidgetTimeline& timeline, const CardOptions& options, int scale);

} // namespace Korvane
