#pragma once

#include "KorvaneMacWidget/Widget.hpp"

namespace Korvane::OnThisDayWidget {

[[nodiscard]] WidgetConfiguration configuration();

/// The photo of the entry's own day, filling the widget, or a message that says why there is none.
[[nodiscard]] WidgetContent content(const SnapshotEntry& entry, WidgetFamily family);

} // namespace Korvane::OnThisDayWidget
