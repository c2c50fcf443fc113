// The three programs as a person or a desktop runs them.
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/widgetkit/WidgetConfiguration.hpp"
#include "KorvaneCore/widgetkit/WidgetTimeline.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/widget/WidgetFixtures.hpp"

#include <gtest/gtest.h>

namespace Korvane {
namespace {

namespace fs = std::filesystem;
using namespace Testing;

std::set<std::string> everythingBelow(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        names.insert(entry.path().string());
    return names;
}

TEST(Programs, TheExtensionListsItsBundleAndWritesNothing) {
    const TemporaryFolder home;
    const ScopedEnvironment dataHome("XDG_DATA_HOME", home.path().string());
    const auto list = runProgram("korvane-widget", {"list"});
    const auto widgets = KRJSON::read<std::vector<WidgetConfiguration>>(list.output);
    ASSERT_EQ(widgets.size(), 2U);
    EXPECT_EQ(widgets[0],
              (WidgetConfiguration{"app.korvane.widget.pinned",
                                   "Pinned files",
                                   "The files and folders you pinned in Korvane.",
                                   {WidgetFamily::small, WidgetFamily::medium, WidgetFamily::large},
                                   false}));
    EXPECT_EQ(widgets[1],
              (WidgetConfiguration{
                  "app.korvane.widget.onthisday",
                  "On this day",
                  "A photo from this day in an earlier year, from the ones already on this device.",
                  {WidgetFamily::small, WidgetFamily::medium},
                  true}));
    const auto timeline = runProgram("korvane-widget", {"timeline", widgets[1].kind, "--family", "small"});
    EXPECT_EQ(timeline.exitCode, 0);
    EXPECT_EQ(accessibleTexts(KRJSON::read<WidgetTimeline>(timeline.output).entries.at(0).view),
              std::vector<std::string>{"Open Korvane to sign in."});
    EXPECT_TRUE(everythingBelow(home.path()).empty());
}

TEST(Programs, CalledWronglyTheyExitWithTwoAndPrintNoAnswer) {
    const TemporaryContainer container;
    const TemporaryFolder folder;
    const auto output = (folder / "card.png").string();
    const std::vector<std::string> requests[] = {
        {"korvane-widget", "timeline", "app.korvane.widget.other", "--family", "small"},
        {"korvane-widget", "timeline", "app.korvane.widget.pinned", "--family", "huge"},
        {"korvane-widget", "timeline", "app.korvane.widget.onthisday", "--family", "large"},
        {"korvane-widget", "timeline", "app.korvane.widget.pinned"},
        {"korvane-widget", "draw"},
        {"korvane-widget-host", "render", "app.korvane.widget.other", "--family", "small", "--output",
         output},
        {"korvane-widget-host", "render", "app.korvane.widget.pinned", "--family", "huge", "--output",
         output},
        {"korvane-widget-host", "render", "app.korvane.widget.pinned", "--family", "small", "--output",
         "card.gif"},
        {"korvane-widget-host", "render", "app.korvane.widget.pinned", "--family", "small", "--output",
         output, "--scale", "4"},
        {"korvane", "widgets", "publish", "--hide", "--clear"},
        {"korvane", "widgets", "publish", "--years", "3"},
        {"korvane", "sign-in", "ann@example.org", "--service", "nonsense"},
        {"korvane", "sign-in", "ann@example.org", "--password-fd", "9"},
        {"korvane", "share", "create", "note.txt", "--expires", "7x"},
        {"korvane", "share", "open", "note.txt"},
        {"korvane-transfers", "--nonsense"},
    };
    for (const auto& request : requests) {
        const auto result = runProgram(request[0], {request.begin() + 1, request.end()});
        EXPECT_EQ(result.exitCode, 2) << KRJSON::write(request);
        EXPECT_EQ(result.output, "") << KRJSON::write(request);
    }
    EXPECT_FALSE(fs::exists(output));
}

TEST(Programs, PublishedFilesReachThePicture) {
    const TemporaryContainer container;
    const TemporaryFolder files;
    const ScopedEnvironment zone("TZ", "UTC");
    writeFile(files / "plan.pdf", "%PDF-1.7\n");
    writeFile(files / "bad\xFFname", "text\n");
    const auto photo = std::string(KORVANE_SOURCE_DIR) + "/examples/lake.jpg";
    const auto published = runProgram(
        "korvane", {"widgets", "publish", "--pin", (files / "plan.pdf").string(), files.path().string(),
                    (files / "bad\xFFname").string(), "--photo", photo, "--years", "4", "--json"});
    ASSERT_EQ(published.exitCode, 0);
    const auto snapshot = WidgetStore::load();
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(KRJSON::read<WidgetSnapshot>(published.output), *snapshot);
    ASSERT_EQ(snapshot->pins.size(), 3U);
    EXPECT_EQ(snapshot->pins[0].mime, "application/pdf");
    EXPECT_TRUE(snapshot->pins[1].isFolder);
    EXPECT_EQ(snapshot->pins[2].name, "bad\uFFFDname");
    EXPECT_EQ(snapshot->onThisDay->yearsAgo, 4);

    const auto before = everythingBelow(container.path());
    for (const auto* name : {"card.png", "card.svg"}) {
        const auto output = files / name;
        EXPECT_EQ(runProgram("korvane-widget-host", {"render", "app.korvane.widget.onthisday", "--family",
                                                     "medium", "--output", output.string()})
                      .exitCode,
                  0);
        EXPECT_GT(fs::file_size(output), 10'000U);
    }
    EXPECT_EQ(everythingBelow(container.path()), before);
}

TEST(Programs, AnAnswerThatCannotBeWrittenIsAFailure) {
    for (const auto& [program, word] :
         {std::pair("korvane-widget", "list"), std::pair("korvane-widget-host", "--help")}) {
        ChildProcess shell({"/bin/sh", "-c", R"(exec "$0" "$1" >/dev/full 2>/dev/null)",
                            builtProgram(program).string(), word});
        EXPECT_EQ(shell.wait(), 1) << program;
    }
}

TEST(Programs, ASourceThatCannotBePublishedLeavesTheOldSnapshot) {
    const TemporaryContainer container;
    ASSERT_EQ(runProgram("korvane", {"widgets", "publish", "--pin", "/"}).exitCode, 0);
    const auto before = WidgetStore::load();
    std::vector<std::string> nine{"widgets", "publish", "--pin"};
    nine.insert(nine.end(), 9, "/");
    for (const auto& nothing : {nine, {"widgets", "publish"}, {"widgets", "publish", "--show"}})
        EXPECT_EQ(runProgram("korvane", nothing).exitCode, 2);
    EXPECT_EQ(runProgram("korvane", {"widgets", "publish", "--pin", "/no/such/file", "--hide"}).exitCode, 1);
    EXPECT_EQ(runProgram("korvane", {"widgets", "publish", "--photo", "/etc/passwd"}).exitCode, 1);
    EXPECT_EQ(WidgetStore::load(), before);
    EXPECT_FALSE(WidgetStore::hideContent());

    EXPECT_EQ(runProgram("korvane", {"widgets", "publish", "--hide"}).exitCode, 0);
    EXPECT_EQ(runProgram("korvane", {"widgets", "publish", "--pin", "/"}).exitCode, 0);
    EXPECT_EQ(WidgetStore::load(), WidgetSnapshot::hidden) << "the choice to hide outlasts a publication";
    EXPECT_EQ(runProgram("korvane", {"widgets", "publish", "--pin", "/", "--show"}).exitCode, 0);
    EXPECT_EQ(WidgetStore::load(), before);
    EXPECT_EQ(runProgram("korvane", {"widgets", "publish", "--clear"}).exitCode, 0);
    EXPECT_EQ(WidgetStore::load(), std::nullopt);
}

} // namespace
} // namespace Korvane
