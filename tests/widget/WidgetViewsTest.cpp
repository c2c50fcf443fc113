#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneMacWidget/KorvaneWidgets.hpp"
#include "KorvaneMacWidget/OnThisDayWidget.hpp"
#include "KorvaneMacWidget/PinnedFilesWidget.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/widget/WidgetFixtures.hpp"

#include <gtest/gtest.h>

namespace Korvane {
namespace {

using namespace Testing;

constexpr WidgetFamily everyFamily[] = {WidgetFamily::small, WidgetFamily::medium, WidgetFamily::large};

/// The symbol and text of a message; empty for any other view.
std::pair<std::string, std::string> message(const ViewNode& node) {
    const auto* stack = std::get_if<StackView>(&node.view);
    if (stack == nullptr || stack->children.size() != 2 || stack->spacing != 6 ||
        stack->axis != Axis::vertical)
        return {};
    const auto* symbol = std::get_if<SymbolView>(&stack->children[0].view);
    const auto* text = std::get_if<TextView>(&stack->children[1].view);
    if (symbol == nullptr || text == nullptr)
        return {};
    EXPECT_EQ(text->font, FontRole::caption);
    EXPECT_EQ(text->style, ForegroundStyle::secondary);
    return {symbol->name, text->text};
}

using Message = std::pair<std::string, std::string>;
const Message signedOut{"person.crop.circle", "Open Korvane to sign in."};
const Message hidden{"eye.slash", "Content hidden"};
const Message noPins{"pin", "Pin files in Korvane to see them here."};
const Message noPhoto{"photo.on.rectangle", "No photos from this day on this device."};

TEST(PinnedFilesWidget, EachStateSaysWhyThereAreNoRows) {
    auto hiddenWithPins = withPins(3);
    hiddenWithPins.contentHidden = true;
    for (const auto family : everyFamily) {
        const auto shown = [&](std::optional<WidgetSnapshot> snapshot) {
            const auto content = PinnedFilesWidget::content({aDay(), std::move(snapshot)}, family);
            EXPECT_EQ(content.widgetURL, "korvane://today");
            return message(content.view);
        };
        EXPECT_EQ(shown(std::nullopt), signedOut);
        EXPECT_EQ(shown(WidgetSnapshot::hidden), hidden);
        EXPECT_EQ(shown(hiddenWithPins), hidden);
        EXPECT_EQ(shown(WidgetSnapshot()), noPins);
    }
}

TEST(PinnedFilesWidget, RowsAreLinksMarkedPrivate) {
    const std::pair<WidgetFamily, std::size_t> limits[] = {
        {WidgetFamily::small, 3}, {WidgetFamily::medium, 3}, {WidgetFamily::large, 8}};
    for (const auto& [family, limit] : limits)
        for (const std::size_t count : {1U, 3U, 8U, 12U}) {
            const auto view = PinnedFilesWidget::content({aDay(), withPins(count)}, family).view;
            const auto& column = std::get<StackView>(view.view);
            EXPECT_TRUE(column.fillsWidth);
            EXPECT_EQ(column.alignment, Alignment::leading);
            ASSERT_EQ(column.children.size(), 1 + std::min(count, limit));
            EXPECT_EQ(accessibleTexts(column.children[0]), std::vector<std::string>{"Pinned"});
            for (std::size_t i = 1; i < column.children.size(); ++i) {
                const auto& mark = std::get<PrivacySensitiveView>(column.children[i].view);
                const auto& link = std::get<LinkView>(mark.content.at(0).view);
                EXPECT_EQ(link.url, "korvane://open?id=id-" + std::to_string(i - 1));
                const auto& row = std::get<StackView>(link.content.at(0).view);
                EXPECT_EQ(std::get<SymbolView>(row.children.at(0).view).width, 18);
                EXPECT_EQ(std::get<TextView>(row.children.at(1).view).text, "name " + std::to_string(i - 1));
                EXPECT_EQ(std::get<TextView>(row.children.at(1).view).font, FontRole::footnote);
            }
        }
}

TEST(PinnedFilesWidget, SymbolsCompareTheTypeExactly) {
    const struct {
        bool isFolder;
        std::optional<std::string> mime;
        const char* symbol;
    } cases[] = {
        {true, "image/png", "folder.fill"},
        {true, std::nullopt, "folder.fill"},
        {false, "image/svg+xml", "photo"},
        {false, "video/mp4", "film"},
        {false, "audio/flac", "waveform"},
        {false, "application/pdf", "doc.richtext"},
        {false, "application/PDF", "doc"},
        {false, "application/pdfx", "doc"},
        {false, "Image/png", "doc"},
        {false, "image", "doc"},
        {false, "", "doc"},
        {false, std::nullopt, "doc"},
    };

    for (const auto& test : cases)
        EXPECT_EQ(PinnedFilesWidget::symbol({"", test.isFolder, "", test.mime}), test.symbol)
            << test.mime.value_or("none");
}

class OnThisDayWidgetTest : public testing::Test {
protected:
    static WidgetContent shown(const std::optional<WidgetSnapshot>& snapshot) {
        auto small = OnThisDayWidget::content({aDay(), snapshot}, WidgetFamily::small);
        const auto medium = OnThisDayWidget::content({aDay(), snapshot}, WidgetFamily::medium);
        EXPECT_EQ(small.view, medium.view);
        EXPECT_EQ(small.widgetURL, medium.widgetURL);
        return small;
    }

    TemporaryContainer container_;
    ScopedEnvironment zone_{"TZ", "UTC"};
};

TEST_F(OnThisDayWidgetTest, EachStateSaysWhyThereIsNoPhoto) {
    WidgetStore::save(withPhoto(), aJPEG());
    auto stale = withPhoto();
    stale.onThisDay->day = "2026-11-20";
    auto noFile = withPhoto();
    noFile.onThisDay->thumbnailFile = "missing.jpg";
    auto hiddenPhoto = withPhoto();
    hiddenPhoto.contentHidden = true;
    const std::pair<std::optional<WidgetSnapshot>, Message> cases[] = {{std::nullopt, signedOut},
                                                                       {hiddenPhoto, hidden},
                                                                       {WidgetSnapshot(), noPhoto},
                                                                       {stale, noPhoto},
                                                                       {noFile, noPhoto}};
    for (const auto& [snapshot, expected] : cases) {
        EXPECT_EQ(message(shown(snapshot).view), expected);
        EXPECT_EQ(shown(snapshot).widgetURL, std::nullopt);
    }
    for (const auto& bytes : {std::string("text"), aJPEG().substr(0, 500), std::string()}) {
        writeFile(WidgetStore::thumbnailURL(*withPhoto().onThisDay), bytes);
        EXPECT_EQ(message(shown(withPhoto()).view), noPhoto);
    }
}

TEST_F(OnThisDayWidgetTest, ThePhotoFillsTheWidgetUnderItsCaption) {
    const std::pair<std::int64_t, const char*> captions[] = {
        {1, "1 year ago"}, {2, "2 years ago"}, {0, "0 years ago"}, {-1, "-1 years ago"}};
    for (const auto& [years, caption] : captions) {
        auto climbing = withPhoto(years);
        WidgetStore::save(climbing, aJPEG());
        climbing.onThisDay->thumbnailFile = "../../" + climbing.onThisDay->thumbnailFile;
        const auto content = shown(climbing);
        EXPECT_EQ(content.widgetURL, "korvane://open?id=photo-id");
        const auto& layers = std::get<StackView>(content.view.view);
        EXPECT_EQ(layers.axis, Axis::depth);
        EXPECT_EQ(layers.alignment, Alignment::bottomLeading);
        const auto& photo = std::get<PrivacySensitiveView>(layers.children.at(0).view).content.at(0);
        EXPECT_EQ(std::get<ImageView>(photo.view).file,
                  (container_.path() / "widget/lake-thumb.jpg").string());
        const auto& text = std::get<BackingView>(layers.children.at(1).view).content.at(0);
        EXPECT_EQ(text,
                  ViewNode{(TextView{caption, FontRole::caption, true, ForegroundStyle::white, false})});
    }
}

TEST_F(OnThisDayWidgetTest, TimelinesHoldOneEntryAndTurnOverAtMidnight) {
    WidgetStore::save(withPins(2), std::nullopt);
    for (const auto& widget : KorvaneWidgets::all()) {
        const auto render = [&](KorvaneWidgets::Context context) {
            return KorvaneWidgets::render(widget, WidgetFamily::small, context, aDay());
        };
        const auto timeline = render(KorvaneWidgets::Context::timeline);
        ASSERT_EQ(timeline.entries.size(), 1U);
        EXPECT_EQ(timeline.entries[0].date, aDay());
        EXPECT_EQ(timeline.reloadAfter, KRJSON::parseDate("2026-11-22T00:00:00Z"));
        EXPECT_EQ(render(KorvaneWidgets::Context::snapshot).entries, timeline.entries);
        EXPECT_EQ(message(render(KorvaneWidgets::Context::placeholder).entries.at(0).view), hidden);
        EXPECT_EQ(KRJSON::read<WidgetTimeline>(KRJSON::write(timeline)), timeline);
    }
}

TEST_F(OnThisDayWidgetTest, RedactionLeavesNoPrivateContent) {
    WidgetStore::save(withPhoto(), aJPEG());
    auto snapshot = withPhoto();
    snapshot.pins = {{"id-1", false, "secret plan.pdf", "application/pdf"}};
    const auto pinned = PinnedFilesWidget::content({aDay(), snapshot}, WidgetFamily::small).view;
    const auto photo = shown(snapshot).view;
    for (const auto& [view, secret] :
         {std::pair{pinned, "secret"}, {pinned, "doc.richtext"}, {photo, "lake-thumb"}}) {
        const auto locked = redacted(view);
        EXPECT_NE(KRJSON::write(view).find(secret), std::string::npos);
        EXPECT_EQ(KRJSON::write(locked).find(secret), std::string::npos);
        EXPECT_EQ(redacted(locked), locked);
        EXPECT_EQ(KRJSON::read<ViewNode>(KRJSON::write(locked)), locked);
    }
    EXPECT_EQ(accessibleTexts(redacted(pinned)), std::vector<std::string>{"Pinned"});
    EXPECT_EQ(accessibleTexts(redacted(photo)), std::vector<std::string>{"3 years ago"});
}

} // namespace
} // namespace Korvane
