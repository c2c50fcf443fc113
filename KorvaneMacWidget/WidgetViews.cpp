#include "KorvaneMacWidget/WidgetViews.hpp"

#include "KorvaneCore/config/KRIdentifiers.hpp"

namespace Korvane::WidgetViews {

ViewNode message(std::string_view symbol, std::string_view text) {
    constexpr double spacing = 6;
    const SymbolView picture{std::string(symbol), FontRole::title, ForegroundStyle::secondary, std::nullopt};
    const TextView line{std::string(text), FontRole::caption, false, ForegroundStyle::secondary, true};
    return {StackView{Axis::vertical, Alignment::center, spacing, false, {{picture}, {line}}}};
}

ViewNode signedOut() {
    return message("person.crop.circle", "Open Korvane to sign in.");
}

ViewNode contentHidden() {
    return message("eye.slash", "Content hidden");
}

std::string openURL(std::string_view itemId) {
    return std::string(KRIdentifiers::urlScheme) + "://open?id=" + std::string(itemId);
}

} // namespace Korvane::WidgetViews
