#pragma once

#include "KorvaneCore/widgetkit/ViewNode.hpp"

#include <string>
#include <string_view>

/// What both widgets show in the same way.
namespace Korvane::WidgetViews {

/// A symbol above a line of text, centred.
[[nodiscard]] ViewNode message(std::string_view symbol, std::string_view text);
[[nodiscard]] ViewNode signedOut();
[[nodiscard]] ViewNode contentHidden();

/// "korvane://open?id=" and the item's identifier.
[[nodiscard]] std::string openURL(std::string_view itemId);

} // namespace Korvane::WidgetViews
