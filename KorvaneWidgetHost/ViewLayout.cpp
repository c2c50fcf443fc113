#include "KorvaneWidgetHost/ViewLayout.hpp"

#include "KorvaneWidgetHost/Picture.hpp"
#include "KorvaneWidgetHost/SymbolIcon.hpp"

#include <pango/pangocairo.h>

#include <algorithm>
#include <numbers>

namespace Korvane {

namespace {

constexpr double redactedShare = 0.6;   // of the room, where a bar has no width of its own
constexpr double redactedHeight = 0.75; // of the font size
constexpr double lineHeight = 1.35;     // of the font size

int pangoUnits(double points) {
    return static_cast<int>(points * PANGO_SCALE);
}

double centred(double room, double size) {
    return std::max(0.0, (room - size) / 2);
}

} // namespace

CardStyle::Size ViewLayout::measure(const ViewNode& node, Size room) const {
    return std::visit([&](const auto& view) { return size(view, room); }, node.view);
}

void ViewLayout::draw(const ViewNode& node, const CardRect& place) {
    std::visit([&](const auto& view) { paint(view, place); }, node.view);
}

ViewLayout::TextLayout ViewLayout::layOut(const TextView& text, double width) const {
    TextLayout layout(pango_cairo_create_layout(context_));
    PangoFontDescription* font = pango_font_description_from_string(CardStyle::fontFamily);
    pango_font_description_set_absolute_size(font, CardStyle::fontSize(text.font) * PANGO_SCALE);
    if (text.bold)
        pango_font_description_set_weight(font, PANGO_WEIGHT_BOLD);
    pango_layout_set_font_description(layout.get(), font);
    pango_font_description_free(font);

    pango_layout_set_text(layout.get(), text.text.data(), static_cast<int>(text.text.size()));
    pango_layout_set_width(layout.get(), pangoUnits(std::max(width, 0.0)));
    if (text.wraps) {
        pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD_CHAR);
        pango_layout_set_alignment(layout.get(), PANGO_ALIGN_CENTER);
    } else {
        pango_layout_set_single_paragraph_mode(layout.get(), TRUE);
        pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_END);
    }
    return layout;
}

CardStyle::Colour ViewLayout::colour(ForegroundStyle style) const {
    switch (style) {
    case ForegroundStyle::primary:
        return palette_.primary;
    case ForegroundStyle::secondary:
        return palette_.secondary;
    case ForegroundStyle::white:
        return {1, 1, 1, 1};
    }
    return palette_.primary;
}

void ViewLayout::setColour(const CardStyle::Colour& colour) const {
    cairo_set_source_rgba(context_, colour.red, colour.green, colour.blue, colour.alpha);
}

void ViewLayout::fillRounded(const CardRect& place, double radius, const CardStyle::Colour& colour) const {
    setColour(colour);
    addRoundedRectangle(context_, place, radius);
    cairo_fill(context_);
}

ViewLayout::Size ViewLayout::size(const TextView& text, Size room) const {
    const auto layout = layOut(text, room.width);
    int width = 0;
    int height = 0;
    pango_layout_get_pixel_size(layout.get(), &width, &height);
    return {static_cast<double>(width), static_cast<double>(height)};
}

ViewLayout::Size ViewLayout::size(const SymbolView& symbol, Size) const {
    const double side = CardStyle::symbolSize(symbol.font);
    return {symbol.width.value_or(side), side};
}

ViewLayout::Size ViewLayout::size(const ImageView&, Size room) const {
    return room;
}

ViewLayout::Size ViewLayout::size(const StackView& stack, Size room) const {
    if (stack.axis == Axis::depth)
        return room;
    const bool column = stack.axis == Axis::vertical;
    Size total;
    Size left = room;
    for (const auto& child : stack.children) {
        const bool first = &child == &stack.children.front();
        const double gap = first ? 0 : stack.spacing;
        (column ? left.height : left.width) -= gap;
        const Size taken = measure(child, left);
        (column ? left.height : left.width) -= column ? taken.height : taken.width;
        total = column ? Size{std::max(total.width, taken.width), total.height + gap + taken.height}
                       : Size{total.width + gap + taken.width, std::max(total.height, taken.height)};
    }
    if (stack.fillsWidth)
        total.width = room.width;
    return total;
}

ViewLayout::Size ViewLayout::size(const LinkView& link, Size room) const {
    return measure(link.content.front(), room);
}

ViewLayout::Size ViewLayout::size(const PrivacySensitiveView& view, Size room) const {
    return measure(view.content.front(), room);
}

ViewLayout::Size ViewLayout::size(const BackingView& backing, Size room) const {
    const auto [dx, dy] = CardStyle::backingPadding;
    const Size inner = measure(backing.content.front(), {room.width - 2 * dx, room.height - 2 * dy});
    return {inner.width + 2 * dx, inner.height + 2 * dy};
}

ViewLayout::Size ViewLayout::size(const RedactedView& bar, Size room) const {
    return {bar.width.value_or(room.width * redactedShare), CardStyle::fontSize(bar.font) * lineHeight};
}

ViewLayout::Size ViewLayout::size(const RedactedImageView&, Size room) const {
    return room;
}

void ViewLayout::paint(const TextView& text, const CardRect& place) {
    const auto layout = layOut(text, place.width);
    setColour(colour(text.style));
    cairo_move_to(context_, place.x, place.y);
    pango_cairo_show_layout(context_, layout.get());
}

void ViewLayout::paint(const SymbolView& symbol, const CardRect& place) {
    const double side = std::min(CardStyle::symbolSize(symbol.font), place.width);
    const bool accented = symbol.style == ForegroundStyle::primary;
    SymbolIcon::draw(context_, symbol.name, place.x + centred(place.width, side),
                     place.y + centred(place.height, side), side,
                     accented ? palette_.accent : colour(symbol.style));
}

void ViewLayout::paint(const ImageView& image, const CardRect& place) {
    const auto picture = loadPicture(image.file);
    if (!picture)
        return paint(RedactedImageView{}, place);

    const double width = cairo_image_surface_get_width(picture.get());
    const double height = cairo_image_surface_get_height(picture.get());
    const double scale = std::max(place.width / width, place.height / height);
    cairo_save(context_);
    cairo_rectangle(context_, place.x, place.y, place.width, place.height);
    cairo_clip(context_);
    cairo_translate(context_, place.x + (place.width - width * scale) / 2,
                    place.y + (place.height - height * scale) / 2);
    cairo_scale(context_, scale, scale);
    cairo_set_source_surface(context_, picture.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(context_), CAIRO_FILTER_BEST);
    cairo_pattern_set_extend(cairo_get_source(context_), CAIRO_EXTEND_PAD);
    cairo_paint(context_);
    cairo_restore(context_);
}

void ViewLayout::paint(const StackView& stack, const CardRect& place) {
    switch (stack.axis) {
    case Axis::vertical:
        return paintColumn(stack, place);
    case Axis::horizontal:
        return paintRow(stack, place);
    case Axis::depth:
        return paintLayers(stack, place);
    }
}

void ViewLayout::paintColumn(const StackView& stack, const CardRect& place) {
    double y = place.y;
    for (const auto& child : stack.children) {
        const Size taken = measure(child, {place.width, place.y + place.height - y});
        const double indent = stack.alignment == Alignment::center ? centred(place.width, taken.width) : 0;
        // A leading column hands its whole width down, so that a row can be clicked anywhere.
        draw(child, {place.x + indent, y, stack.fillsWidth ? place.width : taken.width, taken.height});
        y += taken.height + stack.spacing;
    }
}

void ViewLayout::paintRow(const StackView& stack, const CardRect& place) {
    double x = place.x;
    for (const auto& child : stack.children) {
        const double left = place.x + place.width - x;
        const Size taken = measure(child, {left, place.height});
        draw(child,
             {x, place.y + centred(place.height, taken.height), std::min(taken.width, left), taken.height});
        x += taken.width + stack.spacing;
    }
}

void ViewLayout::paintLayers(const StackView& stack, const CardRect& place) {
    constexpr double margin = CardStyle::captionMargin;
    for (const auto& child : stack.children) {
        if (&child == &stack.children.front()) {
            draw(child, place);
            continue;
        }
        const Size taken = measure(child, {place.width - 2 * margin, place.height - 2 * margin});
        const bool corner = stack.alignment == Alignment::bottomLeading;
        draw(child,
             {place.x + (corner ? margin : centred(place.width, taken.width)),
              place.y + (corner ? place.height - margin - taken.height : centred(place.height, taken.height)),
              taken.width, taken.height});
    }
}

void ViewLayout::paint(const LinkView& link, const CardRect& place) {
    links_.push_back({place, link.url, accessibleTexts(link.content.front())});
    draw(link.content.front(), place);
}

void ViewLayout::paint(const PrivacySensitiveView& view, const CardRect& place) {
    draw(view.content.front(), place);
}

void ViewLayout::paint(const BackingView& backing, const CardRect& place) {
    const auto [dx, dy] = CardStyle::backingPadding;
    fillRounded(place, CardStyle::backingRadius, {0, 0, 0, backing.opacity});
    draw(backing.content.front(), {place.x + dx, place.y + dy, place.width - 2 * dx, place.height - 2 * dy});
}

void ViewLayout::paint(const RedactedView& bar, const CardRect& place) {
    const double height = CardStyle::fontSize(bar.font) * redactedHeight;
    fillRounded({place.x, place.y + centred(place.height, height), place.width, height}, height / 3,
                palette_.redacted);
}

void ViewLayout::paint(const RedactedImageView&, const CardRect& place) {
    setColour(palette_.redacted);
    cairo_rectangle(context_, place.x, place.y, place.width, place.height);
    cairo_fill(context_);
}

void addRoundedRectangle(cairo_t* context, const CardRect& place, double radius) {
    constexpr double quarter = std::numbers::pi / 2;
    const double right = place.x + place.width;
    const double bottom = place.y + place.height;
    const double r = std::min({radius, place.width / 2, place.height / 2});
    cairo_new_sub_path(context);
    cairo_arc(context, right - r, place.y + r, r, -quarter, 0);
    cairo_arc(context, right - r, bottom - r, r, 0, quarter);
    cairo_arc(context, place.x + r, bottom - r, r, quarter, 2 * quarter);
    cairo_arc(context, place.x + r, place.y + r, r, 2 * quarter, 3 * quarter);
    cairo_close_path(context);
}

} // namespace Korvane
