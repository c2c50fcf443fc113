#pragma once

#include "KorvaneCore/widgetkit/ViewNode.hpp"
#include "KorvaneCore/widgetkit/WidgetConfiguration.hpp"
#include "KorvaneMacWidget/SnapshotEntry.hpp"

#include <optional>
#include <string>

namespace Korvane {

/// What a widget shows for one entry.
struct WidgetContent {
    ViewNode view;
    std::optional<std::string> widgetURL; ///< opened by a click anywhere outside a link
};

/// One widget of the bundle: its place in the gallery and its view. Stateless.
struct Widget {
    WidgetConfiguration configuration;
    WidgetContent (*content)(const SnapshotEntry& entry, WidgetFamily family);
};

} // namespace Korvane
