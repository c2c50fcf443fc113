#pragma once

#include "KorvaneCore/widgetkit/ViewNode.hpp"
#include "KorvaneCore/widgetkit/WidgetFamily.hpp"

/// The look of the cards: every length, size and colour of the drawing. Lengths are in points.
namespace Korvane::CardStyle {

struct Size {
    double width = 0;
    double height = 0;
};

/// Components from 0 to 1.
struct Colour {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;
};

[[nodiscard]] constexpr Size cardSize(WidgetFamily family) {
    switch (family) {
    case WidgetFamily::small:
        return {170, 170};
    case WidgetFamily::medium:
        return {364, 170};
    case WidgetFamily::large:
        return {364, 382};
    }
    return {};
}

inline constexpr double cornerRadius = 22;
inline constexpr double contentMargin = 16;
inline constexpr double captionMargin = 12; ///< of what stands over a picture
inline constexpr Size backingPadding = {8, 4};
inline constexpr double backingRadius = 9;

inline constexpr const char* fontFamily = "Cantarell, DejaVu Sans";

[[nodiscard]] constexpr double fontSize(FontRole role) {
    switch (role) {
    case FontRole::title:
        return 28;
    case FontRole::caption:
        return 12;
    case FontRole::footnote:
        return 13;
    }
    return 12;
}

/// A pictogram is a little larger than the text beside it.
[[nodiscard]] constexpr double symbolSize(FontRole role) {
    return fontSize(role) * 1.15;
}

struct Palette {
    Colour top; ///< of the card's background, which runs from top to bottom
    Colour bottom;
    Colour edge;
    Colour primary;
    Colour secondary;
    Colour accent; ///< of the pictograms in the primary style
    Colour redacted;
};

inline constexpr Palette light = {.top = {1, 1, 1},
                                  .bottom = {0.965, 0.97, 0.98},
                                  .edge = {0, 0, 0, 0.10},
                                  .primary = {0.10, 0.11, 0.14},
                                  .secondary = {0.38, 0.40, 0.45},
                                  .accent = {0.13, 0.42, 0.82},
                                  .redacted = {0.10, 0.11, 0.14, 0.16}};

inline constexpr Palette dark = {.top = {0.18, 0.19, 0.21},
                                 .bottom = {0.12, 0.13, 0.15},
                                 .edge = {1, 1, 1, 0.12},
                                 .primary = {0.95, 0.95, 0.97},
                                 .secondary = {0.68, 0.70, 0.75},
                                 .accent = {0.45, 0.68, 1.0},
                                 .redacted = {1, 1, 1, 0.20}};

} // namespace Korvane::CardStyle
