#pragma once

#include "KorvaneWidgetHost/CardPainter.hpp"

namespace Korvane {

/// Shows both widgets in a window until it is closed: asks for new timelines at their reload dates and when
/// the published snapshot changes. Returns the program's exit code; 1 when there is no display.
[[nodiscard]] int showWidgetWindow(const CardOptions& options);

} // namespace Korvane
