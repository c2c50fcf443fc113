#pragma once

#include "KorvaneWidgetHost/CardStyle.hpp"

#include <cairo.h>

#include <string_view>

/// Pictograms by their symbol name, drawn from the desktop's Adwaita icon theme.
namespace Korvane::SymbolIcon {

/// The freedesktop icon, below "icons/Adwaita/scalable/", that stands for a symbol; empty for an unknown one.
[[nodiscard]] std::string_view iconName(std::string_view symbol);

/// Draws the symbol as a square of `side` points with its upper left corner at (x, y), all in one colour. An
/// unknown symbol, or an icon that is not installed, draws a plain ring and is logged.
void draw(cairo_t* context, std::string_view symbol, double x, double y, double side,
          const CardStyle::Colour& colour);

} // namespace Korvane::SymbolIcon
