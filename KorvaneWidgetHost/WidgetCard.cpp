#include "KorvaneWidgetHost/WidgetCard.hpp"

#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneWidgetHost/OpenLink.hpp"
#include "KorvaneWidgetHost/WidgetExtension.hpp"

#include <fmt/ranges.h>

namespace Korvane {

namespace {

constexpr std::chrono::minutes retryInterval{1};

void setAccessibleLabel(Gtk::Widget& widget, const std::string& label) {
    gtk_accessible_update_property(GTK_ACCESSIBLE(widget.gobj()), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                   label.c_str(), -1);
}

} // namespace

WidgetCard::WidgetCard(std::string kind, std::string family, CardOptions options)
    : kind_(std::move(kind)), family_(std::move(family)), options_(options) {
    drawing_.set_draw_func([this](const Cairo::RefPtr<Cairo::Context>& context, int, int) {
        if (timeline_)
            paintCard(context->cobj(), *timeline_, timeline_->entries.front(), options_);
    });
    g_object_set(drawing_.gobj(), "accessible-role", GTK_ACCESSIBLE_ROLE_IMG, nullptr);
    set_child(drawing_);
    add_overlay(links_);
}

void WidgetCard::reload() {
    try {
        show(WidgetExtension::timeline(kind_, family_));
    } catch (const WidgetExtensionError& error) {
        Log::error("widget-host", error.what());
        reloadAt_ = std::chrono::system_clock::now() + retryInterval;
    }
}

void WidgetCard::reloadWhenDue(std::chrono::system_clock::time_point now) {
    if (reloadAt_ && now >= *reloadAt_)
        reload();
}

void WidgetCard::show(WidgetTimeline timeline) {
    const auto size = CardStyle::cardSize(timeline.family);
    drawing_.set_content_width(static_cast<int>(size.width));
    drawing_.set_content_height(static_cast<int>(size.height));
    replaceLinks(timeline);
    drawing_.queue_draw();
    reloadAt_ = timeline.reloadAfter;
    timeline_ = std::move(timeline);
}

void WidgetCard::replaceLinks(const WidgetTimeline& timeline) {
    for (auto* button : buttons_)
        links_.remove(*button);
    buttons_.clear();

    const auto& entry = timeline.entries.front();
    const auto texts = accessibleTexts(visibleView(entry, options_));
    setAccessibleLabel(drawing_, fmt::format("{}: {}", timeline.displayName, fmt::join(texts, ", ")));

    // Where the links are is known once the card is laid out; this drawing is kept nowhere.
    const auto recording = Cairo::RecordingSurface::create();
    const auto context = Cairo::Context::create(recording);
    for (const auto& region : paintCard(context->cobj(), timeline, entry, options_))
        addLink(region);
}

void WidgetCard::addLink(const LinkRegion& region) {
    auto* button = Gtk::make_managed<Gtk::Button>();
    button->add_css_class("korvane-link");
    button->set_size_request(static_cast<int>(region.area.width), static_cast<int>(region.area.height));
    button->set_cursor("pointer");
    setAccessibleLabel(*button, region.texts.empty() ? std::string("Open item")
                                                     : fmt::format("Open {}", fmt::join(region.texts, ", ")));
    button->signal_clicked().connect([url = region.url] { openLink(url); });
    links_.put(*button, region.area.x, region.area.y);
    buttons_.push_back(button);
}

} // namespace Korvane
