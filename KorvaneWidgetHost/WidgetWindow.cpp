#include "KorvaneWidgetHost/WidgetWindow.hpp"

#include "KorvaneCore/widget/WidgetStore.hpp"
#include "KorvaneWidgetHost/WidgetCard.hpp"

#include <gtkmm.h>

#include <cstdio>
#include <cstdlib>

namespace Korvane {

namespace {

constexpr int spacing = 20;
constexpr unsigned int settleInterval = 50; // ms
// Reload dates are wall-clock times, and the wall clock may jump or the machine sleep.
constexpr unsigned int dueCheckInterval = 20'000; // ms

constexpr const char* style =
    "button.korvane-link { background: none; border: none; box-shadow: none;"
    " outline-offset: 0; border-radius: 6px; padding: 0; min-height: 0; min-width: 0; }"
    "button.korvane-link:hover { background: alpha(currentColor, 0.06); }";

class WidgetWindow : public Gtk::ApplicationWindow {
public:
    explicit WidgetWindow(const CardOptions& options)
        : pinned_("app.korvane.widget.pinned", "large", options),
          onThisDay_("app.korvane.widget.onthisday", "medium", options) {
        set_title("Korvane widgets");
        set_resizable(false);
        column_.set_margin(spacing);
        column_.append(pinned_);
        column_.append(onThisDay_);
        set_child(column_);
        followSnapshot();
        reload();
        Glib::signal_timeout().connect(
            [this] {
                pinned_.reloadWhenDue(std::chrono::system_clock::now());
                onThisDay_.reloadWhenDue(std::chrono::system_clock::now());
                return true;
            },
            dueCheckInterval);
    }

private:
    void reload() {
        pinned_.reload();
        onThisDay_.reload();
    }

    void followSnapshot() {
        const auto file = Gio::File::create_for_path(WidgetStore::snapshotURL().string());
        monitor_ = file->monitor_file(Gio::FileMonitorFlags::WATCH_MOVES);
        monitor_->signal_changed().connect([this](const auto&, const auto&, Gio::FileMonitor::Event) {
            // One publication makes several events; the last of them reloads.
            settled_.disconnect();
            settled_ = Glib::signal_timeout().connect(
                [this] {
                    reload();
                    return false;
                },
                settleInterval);
        });
    }

    Gtk::Box column_{Gtk::Orientation::VERTICAL, spacing};
    WidgetCard pinned_;
    WidgetCard onThisDay_;
    Glib::RefPtr<Gio::FileMonitor> monitor_;
    sigc::connection settled_;
};

void loadStyle() {
    const auto provider = Gtk::CssProvider::create();
    provider->load_from_data(style);
    Gtk::StyleContext::add_provider_for_display(Gdk::Display::get_default(), provider,
                                                GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
}

} // namespace

int showWidgetWindow(const CardOptions& options) {
    // The cards are drawn by Cairo; a GL renderer would add memory and a shader cache on the disk.
    ::setenv("GSK_RENDERER", "cairo", 0);
    if (gtk_init_check() == FALSE) {
        std::fputs("korvane-widget-host: there is no display to open a window on.\n", stderr);
        return 1;
    }
    const auto application =
        Gtk::Application::create("app.korvane.widgethost", Gio::Application::Flags::NON_UNIQUE);
    application->signal_startup().connect([&] {
        loadStyle();
        Gtk::Settings::get_default()->property_gtk_application_prefer_dark_theme() = options.dark;
    });
    return application->make_window_and_run<WidgetWindow>(0, nullptr, options);
}

} // namespace Korvane
