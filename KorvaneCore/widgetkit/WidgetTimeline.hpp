#pragma once

#include "KorvaneCore/widgetkit/ViewNode.hpp"
#include "KorvaneCore/widgetkit/WidgetFamily.hpp"

#include <boost/describe/class.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

/// What an extension hands to its host. Dates cross with millisecond resolution.
namespace Korvane {

/// What the widget shows from `date` on.
struct RenderedEntry {
    std::chrono::system_clock::time_point date;
    std::optional<std::string> widgetURL; ///< opened by a click outside every link
    ViewNode view;

    friend bool operator==(const RenderedEntry&, const RenderedEntry&) = default;
};
BOOST_DESCRIBE_STRUCT(RenderedEntry, (), (date, widgetURL, view))

struct WidgetTimeline {
    std::string kind;
    std::string displayName;
    WidgetFamily family = WidgetFamily::small;
    bool contentMarginsDisabled = false;
    std::vector<RenderedEntry> entries;                               ///< by date; at least one
    std::optional<std::chrono::system_clock::time_point> reloadAfter; ///< when to ask for the next timeline

    friend bool operator==(const WidgetTimeline&, const WidgetTimeline&) = default;
};
BOOST_DESCRIBE_STRUCT(WidgetTimeline, (),
                      (kind, displayName, family, contentMarginsDisabled, entries, reloadAfter))

} // namespace Korvane
