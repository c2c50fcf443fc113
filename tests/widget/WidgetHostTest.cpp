#include "KorvaneMacWidget/OnThisDayWidget.hpp"
#include "KorvaneMacWidget/PinnedFilesWidget.hpp"
#include "KorvaneWidgetHost/CardImage.hpp"
#include "KorvaneWidgetHost/SymbolIcon.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/widget/WidgetFixtures.hpp"

#include <gtest/gtest.h>

namespace Korvane {
namespace {

using namespace Testing;

WidgetTimeline timelineOf(WidgetContent content, WidgetFamily family, bool fullBleed = false) {
    return {"kind", "Widget", family, fullBleed, {{aDay(), content.widgetURL, content.view}}, std::nullopt};
}

TEST(WidgetHost, EverySymbolOfTheWidgetsHasAnIcon) {
    for (const auto* symbol : {"person.crop.circle", "eye.slash", "pin", "pin.fill", "folder.fill", "photo",
                               "film", "waveform", "doc.richtext", "doc", "photo.on.rectangle"})
        EXPECT_FALSE(SymbolIcon::iconName(symbol).empty()) << symbol;
}

TEST(WidgetHost, EveryRowLiesInsideTheCardAndOverlapsNoOther) {
    const std::pair<WidgetFamily, std::size_t> families[] = {
        {WidgetFamily::small, 3}, {WidgetFamily::medium, 3}, {WidgetFamily::large, 8}};
    auto snapshot = withPins(8);
    for (auto& pin : snapshot.pins)
        pin.name = std::string(300, 'W') + "\nsecond line \u2028 \u05D0";
    for (const auto& [family, rows] : families) {
        const auto timeline = timelineOf(PinnedFilesWidget::content({aDay(), snapshot}, family), family);
        cairo_surface_t* surface = cairo_recording_surface_create(CAIRO_CONTENT_COLOR_ALPHA, nullptr);
        cairo_t* context = cairo_create(surface);
        const auto links = paintCard(context, timeline, timeline.entries.front(), {});
        cairo_destroy(context);
        cairo_surface_destroy(surface);

        const auto card = CardStyle::cardSize(family);
        ASSERT_EQ(links.size(), rows + 1);
        EXPECT_EQ(links[0].url, "korvane://today");
        double below = CardStyle::contentMargin;
        for (std::size_t i = 1; i < links.size(); ++i) {
            const auto& area = links[i].area;
            EXPECT_EQ(links[i].url, "korvane://open?id=id-" + std::to_string(i - 1));
            EXPECT_GE(area.y, below);
            below = area.y + area.height;
            EXPECT_LE(area.x + area.width, card.width - CardStyle::contentMargin + 0.5);
        }
        EXPECT_LE(below, card.height - CardStyle::contentMargin);
    }
}

TEST(WidgetHost, LockedPicturesDoNotDependOnWhatTheyHide) {
    const TemporaryContainer container;
    const ScopedEnvironment zone("TZ", "UTC");
    auto one = withPhoto();
    one.pins = {{"id", false, "one name", "image/png"}};
    WidgetStore::save(one, aJPEG());
    auto other = one;
    other.pins[0].name = "quite another, longer name";
    other.pins[0].mime = "application/pdf";
    const auto family = WidgetFamily::medium;
    const CardOptions locked{.dark = false, .locked = true};
    const auto pinned = [&](const WidgetSnapshot& snapshot, const CardOptions& options) {
        return cardPNG(timelineOf(PinnedFilesWidget::content({aDay(), snapshot}, family), family), options,
                       2);
    };
    EXPECT_NE(pinned(one, {}), pinned(other, {}));
    EXPECT_EQ(pinned(one, locked), pinned(other, locked));
    EXPECT_NE(pinned(one, {}), pinned(one, {.dark = true, .locked = false}));

    const auto photo = [&](const CardOptions& options) {
        return cardPNG(timelineOf(OnThisDayWidget::content({aDay(), one}, family), family, true), options, 1);
    };
    const auto shown = photo({});
    const auto lockedPhoto = photo(locked);
    EXPECT_GT(shown.size(), 4 * lockedPhoto.size()) << "an even surface compresses to next to nothing";
}

TEST(WidgetHost, APictureThatCannotBeDecodedLeavesAnEvenSurface) {
    const TemporaryFolder folder;
    writeFile(folder / "broken.jpg", "\xFF\xD8\xFF");
    const WidgetContent content{{ImageView{(folder / "broken.jpg").string()}}, std::nullopt};
    EXPECT_FALSE(cardPNG(timelineOf(content, WidgetFamily::small), {}, 1).empty());
    EXPECT_TRUE(cardSVG(timelineOf(content, WidgetFamily::small), {}, 1).starts_with("<?xml"));
}

} // namespace
} // namespace Korvane
