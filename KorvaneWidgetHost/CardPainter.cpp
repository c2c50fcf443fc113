#include "KorvaneWidgetHost/CardPainter.hpp"

#include "KorvaneWidgetHost/ViewLayout.hpp"

#include <algorithm>

namespace Korvane {

namespace {

void paintBackground(cairo_t* context, const CardRect& card, const CardStyle::Palette& palette) {
    cairo_pattern_t* shade = cairo_pattern_create_linear(0, 0, 0, card.height);
    const auto stop = [&](double at, const CardStyle::Colour& colour) {
        cairo_pattern_add_color_stop_rgba(shade, at, colour.red, colour.green, colour.blue, colour.alpha);
    };
    stop(0, palette.top);
    stop(1, palette.bottom);
    cairo_set_source(context, shade);
    cairo_paint(context);
    cairo_pattern_destroy(shade);
}

/// A hairline inside the card's edge, so it stands out from any desktop.
void paintEdge(cairo_t* context, const CardRect& card, const CardStyle::Colour& colour) {
    constexpr double half = 0.5;
    cairo_set_source_rgba(context, colour.red, colour.green, colour.blue, colour.alpha);
    cairo_set_line_width(context, 1);
    addRoundedRectangle(context, {half, half, card.width - 1, card.height - 1},
                        CardStyle::cornerRadius - half);
    cairo_stroke(context);
}

bool isFullBleed(const ViewNode& view) {
    const auto* stack = std::get_if<StackView>(&view.view);
    return stack != nullptr && stack->axis == Axis::depth;
}

/// Where the view stands: lists begin at the top, pictures fill the card where the widget allows, all else is
/// centred.
CardRect contentPlace(const ViewLayout& layout, const ViewNode& view, const CardRect& card,
                      bool marginsDisabled) {
    if (marginsDisabled && isFullBleed(view))
        return card;
    constexpr double margin = CardStyle::contentMargin;
    const CardRect room{margin, margin, card.width - 2 * margin, card.height - 2 * margin};
    const auto size = layout.measure(view, {room.width, room.height});
    const auto* stack = std::get_if<StackView>(&view.view);
    if (stack != nullptr && stack->fillsWidth)
        return room;
    return {room.x + std::max(0.0, (room.width - size.width) / 2),
            room.y + std::max(0.0, (room.height - size.height) / 2), std::min(size.width, room.width),
            std::min(size.height, room.height)};
}

} // namespace

ViewNode visibleView(const RenderedEntry& entry, const CardOptions& options) {
    return options.locked ? redacted(entry.view) : entry.view;
}

std::vector<LinkRegion> paintCard(cairo_t* context, const WidgetTimeline& timeline,
                                  const RenderedEntry& entry, const CardOptions& options) {
    const auto size = CardStyle::cardSize(timeline.family);
    const CardRect card{0, 0, size.width, size.height};
    const auto& palette = options.dark ? CardStyle::dark : CardStyle::light;
    const auto view = visibleView(entry, options);

    cairo_save(context);
    addRoundedRectangle(context, card, CardStyle::cornerRadius);
    cairo_clip(context);
    paintBackground(context, card, palette);
    ViewLayout layout(context, palette);
    layout.draw(view, contentPlace(layout, view, card, timeline.contentMarginsDisabled));
    paintEdge(context, card, palette.edge);
    cairo_restore(context);

    auto links = layout.takeLinks();
    if (entry.widgetURL)
        links.insert(links.begin(), {card, *entry.widgetURL, accessibleTexts(view)});
    return links;
}

} // namespace Korvane
