#include "KorvaneMacWidget/KorvaneWidgets.hpp"

#include "KorvaneMacWidget/OnThisDayWidget.hpp"
#include "KorvaneMacWidget/PinnedFilesWidget.hpp"
#include "KorvaneMacWidget/SnapshotProvider.hpp"

#include <algorithm>

namespace Korvane::KorvaneWidgets {

const std::vector<Widget>& all() {
    static const std::vector<Widget> widgets = {
        {PinnedFilesWidget::configuration(), PinnedFilesWidget::content},
        {OnThisDayWidget::configuration(), OnThisDayWidget::content}};
    return widgets;
}

const Widget* find(std::string_view kind) {
    const auto found =
        std::ranges::find(all(), kind, [](const Widget& widget) { return widget.configuration.kind; });
    return found == all().end() ? nullptr : &*found;
}

WidgetTimeline render(const Widget& widget, WidgetFamily family, Context context,
                      std::chrono::system_clock::time_point now) {
    WidgetTimeline rendered{widget.configuration.kind,
                            widget.configuration.displayName,
                            family,
                            widget.configuration.contentMarginsDisabled,
                            {},
                            std::nullopt};
    const auto add = [&](const SnapshotEntry& entry) {
        auto content = widget.content(entry, family);
        rendered.entries.push_back({entry.date, std::move(content.widgetURL), std::move(content.view)});
    };
    switch (context) {
    case Context::placeholder:
        add(SnapshotProvider::placeholder(now));
        break;
    case Context::snapshot:
        add(SnapshotProvider::snapshot(now));
        break;
    case Context::timeline: {
        const auto timeline = SnapshotProvider::timeline(now);
        std::ranges::for_each(timeline.entries, add);
        rendered.reloadAfter = timeline.reloadAfter;
    }
    }
    return rendered;
}

} // namespace Korvane::KorvaneWidgets
