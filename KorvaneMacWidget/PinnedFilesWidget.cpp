#include "KorvaneMacWidget/PinnedFilesWidget.hpp"

#include "KorvaneCore/config/KRIdentifiers.hpp"
#include "KorvaneMacWidget/WidgetViews.hpp"

#include <algorithm>

namespace Korvane::PinnedFilesWidget {

namespace {

constexpr double spacing = 6;
constexpr double iconWidth = 18;

std::size_t rowLimit(WidgetFamily family) {
    return family == WidgetFamily::small || family == WidgetFamily::medium ? 3 : 8;
}

ViewNode header() {
    const SymbolView icon{"pin.fill", FontRole::caption, ForegroundStyle::primary, std::nullopt};
    const TextView title{"Pinned", FontRole::caption, true, ForegroundStyle::primary, false};
    return {StackView{Axis::horizontal, Alignment::center, spacing, false, {{icon}, {title}}}};
}

ViewNode row(const WidgetSnapshot::Pin& pin) {
    const SymbolView icon{std::string(symbol(pin)), FontRole::footnote, ForegroundStyle::primary, iconWidth};
    const TextView name{pin.name, FontRole::footnote, false, ForegroundStyle::primary, false};
    const StackView line{Axis::horizontal, Alignment::center, spacing, false, {{icon}, {name}}};
    const LinkView link{WidgetViews::openURL(pin.id), {{line}}};
    return {PrivacySensitiveView{{{link}}}};
}

ViewNode list(const std::vector<WidgetSnapshot::Pin>& pins, WidgetFamily family) {
    StackView column{Axis::vertical, Alignment::leading, spacing, true, {header()}};
    const auto rows = std::min(pins.size(), rowLimit(family));
    for (std::size_t i = 0; i < rows; ++i)
        column.children.push_back(row(pins[i]));
    return {column};
}

ViewNode view(const SnapshotEntry& entry, WidgetFamily family) {
    if (!entry.snapshot)
        return WidgetViews::signedOut();
    if (entry.snapshot->contentHidden)
        return WidgetViews::contentHidden();
    if (entry.snapshot->pins.empty())
        return WidgetViews::message("pin", "Pin files in Korvane to see them here.");
    return list(entry.snapshot->pins, family);
}

} // namespace

WidgetConfiguration configuration() {
    return {"app.korvane.widget.pinned",
            "Pinned files",
            "The files and folders you pinned in Korvane.",
            {WidgetFamily::small, WidgetFamily::medium, WidgetFamily::large},
            false};
}

WidgetContent content(const SnapshotEntry& entry, WidgetFamily family) {
    return {view(entry, family), std::string(KRIdentifiers::urlScheme) + "://today"};
}

std::string_view symbol(const WidgetSnapshot::Pin& pin) {
    if (pin.isFolder)
        return "folder.fill";
    const std::string_view mime = pin.mime ? std::string_view(*pin.mime) : std::string_view();
    if (mime.starts_with("image/"))
        return "photo";
    if (mime.starts_with("video/"))
        return "film";
    if (mime.starts_with("audio/"))
        return "waveform";
    if (mime == "application/pdf")
        return "doc.richtext";
    return "doc";
}

} // namespace Korvane::PinnedFilesWidget
