#pragma once

#include "KorvaneCore/widgetkit/WidgetFamily.hpp"

#include <boost/describe/class.hpp>

#include <string>
#include <vector>

namespace Korvane {

/// What a widget gallery shows of one widget.
struct WidgetConfiguration {
    std::string kind;
    std::string displayName;
    std::string description;
    std::vector<WidgetFamily> families;
    bool contentMarginsDisabled = false; ///< the content reaches the card's edges

    friend bool operator==(const WidgetConfiguration&, const WidgetConfiguration&) = default;
};
BOOST_DESCRIBE_STRUCT(WidgetConfiguration, (),
                      (kind, displayName, description, families, contentMarginsDisabled))

} // namespace Korvane
