#pragma once

#include "KorvaneWidgetHost/CardPainter.hpp"

#include <gtkmm.h>

#include <string>

namespace Korvane {

/// One widget in the window: its drawing, and over it a transparent button for each link, so that links take
/// clicks, the keyboard's focus and a screen reader's attention. Lives on the main thread.
class WidgetCard : public Gtk::Overlay {
public:
    WidgetCard(std::string kind, std::string family, CardOptions options);

    /// Asks the extension for a new timeline and shows its first entry. On failure the card keeps what it
    /// shows, the reason is logged, and it is asked again a minute later.
    void reload();

    /// Reloads when the timeline asked for that by now.
    void reloadWhenDue(std::chrono::system_clock::time_point now);

private:
    void show(WidgetTimeline timeline);
    void replaceLinks(const WidgetTimeline& timeline);
    void addLink(const LinkRegion& region);

    const std::string kind_;
    const std::string family_;
    const CardOptions options_;
    std::optional<WidgetTimeline> timeline_;
    std::optional<std::chrono::system_clock::time_point> reloadAt_;
    Gtk::DrawingArea drawing_;
    Gtk::Fixed links_;
    std::vector<Gtk::Widget*> buttons_; // owned by links_
};

} // namespace Korvane
