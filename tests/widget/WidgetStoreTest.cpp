#include "KorvaneCore/platform/Files.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/widget/WidgetFixtures.hpp"

#include <gtest/gtest.h>

namespace Korvane {
namespace {

namespace fs = std::filesystem;
using namespace Testing;

class WidgetStoreTest : public testing::Test {
protected:
    [[nodiscard]] std::set<std::string> files() const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(container_.path() / "widget"))
            names.insert(entry.path().filename().string());
        return names;
    }

    TemporaryContainer container_;
};

TEST_F(WidgetStoreTest, WhatIsPublishedIsRead) {
    EXPECT_EQ(WidgetStore::load(), std::nullopt);
    EXPECT_FALSE(fs::exists(container_.path())) << "reading leaves no trace";

    auto snapshot = withPhoto();
    snapshot.pins = {{"1", true, "Ordner \"ä\"", std::nullopt}, {"2", false, "a.pdf", "application/pdf"}};
    WidgetStore::save(snapshot, aJPEG());
    EXPECT_EQ(WidgetStore::load(), snapshot);
    EXPECT_EQ(files(), (std::set<std::string>{"lake-thumb.jpg", "snapshot.json"}));

    WidgetStore::save(WidgetSnapshot::hidden, std::nullopt);
    EXPECT_EQ(WidgetStore::load(), WidgetSnapshot::hidden);
    EXPECT_EQ(files(), std::set<std::string>{"snapshot.json"}) << "no picture stays behind";

    WidgetStore::clear();
    WidgetStore::clear();
    EXPECT_EQ(WidgetStore::load(), std::nullopt);
    EXPECT_TRUE(files().empty());
}

TEST_F(WidgetStoreTest, ASnapshotThatBreaksTheRulesChangesNothing) {
    WidgetStore::save(withPins(8), std::nullopt);
    EXPECT_THROW(WidgetStore::save(withPins(9), std::nullopt), std::invalid_argument);
    EXPECT_THROW(WidgetStore::save(withPhoto(), std::nullopt), std::invalid_argument);
    EXPECT_THROW(WidgetStore::save(withPins(1), aJPEG()), std::invalid_argument);
    for (const auto* name : {"", "..", "../a.jpg", "a/b.jpg", "/etc/a.jpg", "snapshot.json"}) {
        auto snapshot = withPhoto();
        snapshot.onThisDay->thumbnailFile = name;
        EXPECT_THROW(WidgetStore::save(snapshot, aJPEG()), std::invalid_argument) << name;
    }
    auto hiddenPins = withPins(1);
    hiddenPins.contentHidden = true;
    EXPECT_THROW(WidgetStore::save(hiddenPins, std::nullopt), std::invalid_argument);
    auto noText = withPins(1);
    noText.pins[0].name = "bad\xFF";
    EXPECT_THROW(WidgetStore::save(noText, std::nullopt), std::invalid_argument);
    auto huge = withPins(1);
    huge.pins[0].name = std::string(WidgetStore::maxSnapshotSize, 'x');
    EXPECT_THROW(WidgetStore::save(huge, std::nullopt), std::invalid_argument);
    EXPECT_EQ(WidgetStore::load(), withPins(8));
}

TEST_F(WidgetStoreTest, PublishersInSeveralProcessesDoNotDisturbEachOther) {
    const auto photo = std::string(KORVANE_SOURCE_DIR) + "/examples/lake.jpg";
    const auto program = builtProgram("korvane").string();
    for (int round = 0; round < 5; ++round) {
        ChildProcess withPicture({program, "widgets", "publish", "--photo", photo});
        ChildProcess without({program, "widgets", "publish", "--pin", "/"});
        WidgetStore::save(withPhoto(), aJPEG());
        EXPECT_EQ(withPicture.wait(), 0);
        EXPECT_EQ(without.wait(), 0);
        const auto snapshot = WidgetStore::load();
        ASSERT_TRUE(snapshot);
        if (snapshot->onThisDay)
            EXPECT_TRUE(fs::exists(WidgetStore::thumbnailURL(*snapshot->onThisDay)));
    }
}

TEST_F(WidgetStoreTest, NothingIsShownWhileContentIsHidden) {
    WidgetStore::setHideContent(true);
    EXPECT_EQ(WidgetStore::save(withPhoto(), aJPEG()), WidgetSnapshot::hidden);
    EXPECT_EQ(WidgetStore::load(), WidgetSnapshot::hidden);
    fs::create_directories(container_.path() / "widget/folder/below");
    WidgetStore::setHideContent(false);
    EXPECT_EQ(WidgetStore::save(withPhoto(), aJPEG()), withPhoto());
    EXPECT_EQ(files(), (std::set<std::string>{"folder", "lake-thumb.jpg", "snapshot.json"}));
}

TEST_F(WidgetStoreTest, AnythingButASnapshotReadsAsNone) {
    const std::string good = R"({"contentHidden":false,"pins":[]})";
    const std::string cases[] = {
        "",
        "{",
        good.substr(0, good.size() - 1),
        "[]",
        "null",
        R"({"pins":[]})",
        R"({"contentHidden":false})",
        R"({"contentHidden":0,"pins":[]})",
        R"({"contentHidden":false,"pins":{}})",
        R"({"contentHidden":false,"pins":[{"id":1,"isFolder":false,"name":"a"}]})",
        R"({"contentHidden":false,"pins":[],"onThisDay":{"id":"1"}})",
        R"({"contentHidden":false,"pins":[],"onThisDay":{"id":"1","name":"n","yearsAgo":1.5,"day":"d","thumbnailFile":"t"}})",
        good + std::string(WidgetStore::maxSnapshotSize, ' '),
        std::string(100'000, '['),
    };
    for (const auto& text : cases) {
        writeFile(WidgetStore::snapshotURL(), text);
        EXPECT_EQ(WidgetStore::load(), std::nullopt) << text.substr(0, 80);
    }
    writeFile(WidgetStore::snapshotURL(), good);
    EXPECT_EQ(WidgetStore::load(), WidgetSnapshot());
    fs::remove(WidgetStore::snapshotURL());
    fs::create_directory(WidgetStore::snapshotURL());
    EXPECT_EQ(WidgetStore::load(), std::nullopt);
}

TEST_F(WidgetStoreTest, ThumbnailsNeverReachOutsideTheFolder) {
    const std::pair<const char*, const char*> cases[] = {{"a.jpg", "a.jpg"},
                                                         {"../../a.jpg", "a.jpg"},
                                                         {"/etc/passwd", "passwd"},
                                                         {"..", ""},
                                                         {"x/", "x"},
                                                         {"", ""}};
    for (const auto& [name, last] : cases) {
        WidgetSnapshot::Photo photo;
        photo.thumbnailFile = name;
        EXPECT_EQ(WidgetStore::thumbnailURL(photo), container_.path() / "widget" / last) << name;
    }
}

} // namespace
} // namespace Korvane
