#pragma once

#include "KorvaneCore/widgetkit/WidgetTimeline.hpp"
#include "KorvaneMacWidget/Widget.hpp"

#include <chrono>
#include <string_view>
#include <vector>

/// The widget bundle: every widget of the extension, and what the host may ask of each.
namespace Korvane::KorvaneWidgets {

[[nodiscard]] const std::vector<Widget>& all();

/// The widget of a kind; null when there is none.
[[nodiscard]] const Widget* find(std::string_view kind);

/// What the entry or timeline is asked for: to stand in, for a short display, or to stay on screen.
enum class Context { placeholder, snapshot, timeline };

/// The widget's rendered timeline from `now` on; without reload date except in the timeline context.
[[nodiscard]] WidgetTimeline render(const Widget& widget, WidgetFamily family, Context context,
                                    std::chrono::system_clock::time_point now);

} // namespace Korvane::KorvaneWidgets
