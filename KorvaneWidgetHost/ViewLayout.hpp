#pragma once

#include "KorvaneCore/widgetkit/ViewNode.hpp"
#include "KorvaneWidgetHost/CardPainter.hpp"

#include <cairo.h>
#include <pango/pango.h>

#include <memory>
#include <vector>

namespace Korvane {

/// Lays out and draws view nodes in two steps: a node is asked for the size it takes of the room offered,
/// then drawn into the rectangle its parent gives it.
class ViewLayout {
public:
    /// Draws on `context`, which must outlive this object.
    ViewLayout(cairo_t* context, const CardStyle::Palette& palette) : context_(context), palette_(palette) {}

    [[nodiscard]] CardStyle::Size measure(const ViewNode& node, CardStyle::Size room) const;
    void draw(const ViewNode& node, const CardRect& place);

    [[nodiscard]] std::vector<LinkRegion> takeLinks() { return std::move(links_); }

private:
    using Size = CardStyle::Size;

    struct Unref {
        void operator()(PangoLayout* layout) const { g_object_unref(layout); }
    };

    using TextLayout = std::unique_ptr<PangoLayout, Unref>;

    [[nodiscard]] TextLayout layOut(const TextView& text, double width) const;
    [[nodiscard]] CardStyle::Colour colour(ForegroundStyle style) const;
    void setColour(const CardStyle::Colour& colour) const;
    void fillRounded(const CardRect& place, double radius, const CardStyle::Colour& colour) const;

    [[nodiscard]] Size size(const TextView& text, Size room) const;
    [[nodiscard]] Size size(const SymbolView& symbol, Size room) const;
    [[nodiscard]] Size size(const ImageView& image, Size room) const;
    [[nodiscard]] Size size(const StackView& stack, Size room) const;
    [[nodiscard]] Size size(const LinkView& link, Size room) const;
    [[nodiscard]] Size size(const PrivacySensitiveView& view, Size room) const;
    [[nodiscard]] Size size(const BackingView& backing, Size room) const;
    [[nodiscard]] Size size(const RedactedView& bar, Size room) const;
    [[nodiscard]] Size size(const RedactedImageView& image, Size room) const;

    void paint(const TextView& text, const CardRect& place);
    void paint(const SymbolView& symbol, const CardRect& place);
    void paint(const ImageView& image, const CardRect& place);
    void paint(const StackView& stack, const CardRect& place);
    void paint(const LinkView& link, const CardRect& place);
    void paint(const PrivacySensitiveView& view, const CardRect& place);
    void paint(const BackingView& backing, const CardRect& place);
    void paint(const RedactedView& bar, const CardRect& place);
    void paint(const RedactedImageView& image, const CardRect& place);

    void paintColumn(const StackView& stack, const CardRect& place);
    void paintRow(const StackView& stack, const CardRect& place);
    void paintLayers(const StackView& stack, const CardRect& place);

    cairo_t* context_;
    const CardStyle::Palette& palette_;
    std::vector<LinkRegion> links_;
};

/// Adds a rectangle with rounded corners to the context's path.
void addRoundedRectangle(cairo_t* context, const CardRect& place, double radius);

} // namespace Korvane
