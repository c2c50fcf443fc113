#include "KorvaneMacWidget/OnThisDayWidget.hpp"

#include "KorvaneCore/widget/WidgetStore.hpp"
#include "KorvaneMacWidget/JPEGFile.hpp"
#include "KorvaneMacWidget/WidgetViews.hpp"

namespace Korvane::OnThisDayWidget {

namespace {

constexpr double backingOpacity = 0.5;

std::string caption(std::int64_t yearsAgo) {
    return yearsAgo == 1 ? "1 year ago" : std::to_string(yearsAgo) + " years ago";
}

ViewNode photoView(const std::string& file, std::int64_t yearsAgo) {
    const ViewNode photo{PrivacySensitiveView{{{ImageView{file}}}}};
    const TextView text{caption(yearsAgo), FontRole::caption, true, ForegroundStyle::white, false};
    const BackingView backing{backingOpacity, {{text}}};
    return {StackView{Axis::depth, Alignment::bottomLeading, 0, true, {photo, {backing}}}};
}

} // namespace

WidgetConfiguration configuration() {
    return {"app.korvane.widget.onthisday",
            "On this day",
            "A photo from this day in an earlier year, from the ones already on this device.",
            {WidgetFamily::small, WidgetFamily::medium},
            true};
}

WidgetContent content(const SnapshotEntry& entry, WidgetFamily) {
    if (!entry.snapshot)
        return {WidgetViews::signedOut(), std::nullopt};
    if (entry.snapshot->contentHidden)
        return {WidgetViews::contentHidden(), std::nullopt};

    const auto& photo = entry.snapshot->onThisDay;
    const bool isForToday = photo && photo->day == WidgetSnapshot::dayKey(entry.date);
    if (!isForToday || !isJPEGFile(WidgetStore::thumbnailURL(*photo), WidgetStore::maxThumbnailSize))
        return {WidgetViews::message("photo.on.rectangle", "No photos from this day on this device."),
                std::nullopt};
    return {photoView(WidgetStore::thumbnailURL(*photo), photo->yearsAgo), WidgetViews::openURL(photo->id)};
}

} // namespace Korvane::OnThisDayWidget
