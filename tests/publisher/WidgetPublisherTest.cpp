#include "KorvaneCore/publisher/WidgetPublisher.hpp"

#include "KorvaneCore/sync/SyncRoots.hpp"
#include "tests/storage/IndexFixture.hpp"
#include "tests/widget/WidgetFixtures.hpp"

namespace Korvane::Testing {
namespace {

namespace fs = std::filesystem;

KRJSON::Date at(const char* date) {
    return KRJSON::parseDate(date).value();
}

/// An account with one folder that is mirrored here, on 2026-11-21 in UTC unless the test says otherwise.
class WidgetPublisherTest : public testing::Test {
protected:
    WidgetPublisherTest() {
        fs::create_directories(mirrored_);
        fs::create_directories(offline_);
        index_->upsert(folderItem("root", std::nullopt));
        index_->upsert(folderItem("folder", "root"));
        SyncRoots::add(*index_, {"mirror", mirrored_, "root"});
    }

    static IndexItem pictureItem(const std::string& id, const char* date) {
        auto item = fileItem(id, "root");
        item.mime = "image/jpeg";
        item.version = 1;
        item.mtime = at(date);
        return item;
    }

    void reconciled(const IndexItem& item, const fs::path& file, const char* root = "mirror") {
        const auto stat = localStat(file).value();
        index_->setBase(root, {file.filename(), item.id, false, item.version, stat.size, stat.mtime,
                               stat.inode, item.sha256});
    }

    /// A picture of the account that lies below the sync root.
    fs::path picture(const std::string& id, const char* date, const std::string& bytes = aJPEG()) {
        const auto item = pictureItem(id, date);
        index_->upsert(item);
        writeFile(mirrored_ / id, bytes);
        reconciled(item, mirrored_ / id);
        return mirrored_ / id;
    }

    WidgetPublisher::Publication publish() {
        auto publication = publisher_.publish(now_);
        EXPECT_EQ(WidgetStore::load(), publication.snapshot);
        return publication;
    }

    std::vector<std::string> pins() {
        std::vector<std::string> names;
        for (const auto& pin : publish().snapshot.pins)
            names.push_back(pin.name);
        return names;
    }

    /// "id yearsAgo", or nothing.
    std::string photo() {
        const auto shown = publish().snapshot.onThisDay;
        return shown ? shown->id + " " + std::to_string(shown->yearsAgo) : "";
    }

    TemporaryContainer container_;
    TemporaryFolder folder_;
    ScopedEnvironment zone_{"TZ", "UTC"};
    fs::path mirrored_ = folder_ / "mirrored";
    fs::path offline_ = folder_ / "Offline";
    std::shared_ptr<LocalIndex> index_ = std::make_shared<LocalIndex>(folder_ / "index.sqlite");
    WidgetPublisher publisher_{index_, offline_};
    KRJSON::Date now_ = aDay();
};

TEST_F(WidgetPublisherTest, PinsKeepTheOrderTheyWerePinnedInAsTheIndexChanges) {
    auto paper = fileItem("paper", "folder");
    paper.mime = "application/pdf";
    for (const auto& item : {paper, fileItem("b", "root"), fileItem("a", "folder")})
        index_->upsert(item);
    for (const auto* id : {"paper", "unknown", "folder", "b", "a", "paper"})
        index_->setPinned(id, true);
    const auto first = publish();
    EXPECT_TRUE(first.isNew);
    const std::vector<WidgetSnapshot::Pin> expected{{"paper", false, "paper", "application/pdf"},
                                                    {"folder", true, "folder", std::nullopt},
                                                    {"b", false, "b", std::nullopt},
                                                    {"a", false, "a", std::nullopt}};
    EXPECT_EQ(first.snapshot.pins, expected);

    paper.name = "renamed";
    index_->upsert(paper);
    index_->setPinned("b", false);
    index_->setPinned("b", true);
    EXPECT_EQ(pins(), (std::vector<std::string>{"renamed", "folder", "a", "b"}));
    index_->markDeleted("folder", now_);
    EXPECT_EQ(pins(), std::vector<std::string>{"b"}) << "what lies in a folder in the Trash lies there too";

    for (int i = 0; i < 10; ++i) {
        index_->upsert(fileItem(std::to_string(i), "root"));
        index_->setPinned(std::to_string(i), true);
    }
    EXPECT_EQ(pins(), (std::vector<std::string>{"b", "0", "1", "2", "3", "4", "5", "6"}));
}

TEST_F(WidgetPublisherTest, AnEarlierYearsPictureOfTodaysDayInTheUsersCalendarIsShown) {
    struct Case {
        const char* zone;
        const char* now;
        const char* date;
        int years; // 0 for no photo
    };

    const Case cases[] = {
        {"UTC", "2026-11-21T10:45:00Z", "2023-11-21T23:59:59Z", 3},
        {"UTC", "2026-11-21T10:45:00Z", "2023-11-22T00:00:00Z", 0},
        {"UTC", "2026-11-21T10:45:00Z", "2026-11-21T09:00:00Z", 0},
        {"UTC", "2026-11-21T10:45:00Z", "2031-11-21T09:00:00Z", 0},
        {"UTC", "2026-11-21T10:45:00Z", "1926-11-21T09:00:00Z", 100},
        // New Year's Day in Berlin is still the year before in UTC.
        {"Europe/Berlin", "2025-12-31T23:30:00Z", "2022-12-31T23:10:00Z", 3},
        {"Europe/Berlin", "2025-12-31T23:30:00Z", "2022-12-31T22:10:00Z", 0},
        {"Europe/Berlin", "2025-12-31T23:30:00Z", "2025-01-01T10:00:00Z", 1},
        {"Europe/Berlin", "2026-12-31T10:00:00Z", "2025-12-31T22:59:00Z", 1},
        {"Pacific/Kiritimati", "2026-11-20T11:00:00Z", "2023-11-20T10:00:00Z", 3},
        {"Pacific/Kiritimati", "2026-11-20T11:00:00Z", "2023-11-21T10:00:00Z", 0},
        {"Pacific/Pago_Pago", "2026-11-22T10:00:00Z", "2024-11-22T10:59:00Z", 2},
        {"UTC", "2028-02-29T12:00:00Z", "2024-02-29T12:00:00Z", 4},
        {"UTC", "2028-02-29T12:00:00Z", "2027-02-28T12:00:00Z", 0},
        {"UTC", "2027-02-28T12:00:00Z", "2024-02-29T12:00:00Z", 0},
        {"UTC", "2027-03-01T12:00:00Z", "2024-02-29T12:00:00Z", 0},
    };
    for (const auto& test : cases) {
        const ScopedEnvironment zone("TZ", test.zone);
        now_ = at(test.now);
        picture("p", test.date);
        EXPECT_EQ(photo(), test.years == 0 ? "" : "p " + std::to_string(test.years))
            << test.zone << ", " << test.now << ", " << test.date;
    }
    auto undated = pictureItem("p", "2023-11-21T12:00:00Z");
    undated.createdAt = std::exchange(undated.mtime, std::nullopt);
    index_->upsert(undated);
    now_ = aDay();
    EXPECT_EQ(photo(), "p 3");
}

TEST_F(WidgetPublisherTest, OfSeveralPicturesTheLatestYearsFirstOneThatCanBeShownIs) {
    picture("old", "2019-11-21T08:00:00Z");
    EXPECT_EQ(photo(), "old 7");
    picture("z", "2024-11-21T08:00:00Z");
    picture("y", "2024-11-21T08:00:00Z");
    picture("x", "2024-11-21T09:00:00Z");
    EXPECT_EQ(photo(), "y 2");
    picture("broken", "2025-11-21T08:00:00Z", "no picture");
    picture("a text", "2025-11-21T08:00:00Z");
    auto text = pictureItem("a text", "2025-11-21T08:00:00Z");
    text.mime = "text/plain";
    index_->upsert(text);
    for (int i = 0; i < 250; ++i) { // more than are looked at at a time, none of them on this device any more
        const auto id = "gone" + std::to_string(i);
        fs::remove(picture(id, "2025-11-21T07:00:00Z", ""));
    }
    EXPECT_EQ(photo(), "y 2");
    picture("w", "2025-11-21T09:00:00Z");
    EXPECT_EQ(photo(), "w 1");
}

TEST_F(WidgetPublisherTest, OnlyBytesThatAreHereAndUnchangedAreShown) {
    const auto file = picture("p", "2023-11-21T12:00:00Z");
    EXPECT_EQ(photo(), "p 3");
    writeFile(file, aJPEG() + "edited");
    EXPECT_EQ(photo(), "");
    auto item = pictureItem("p", "2023-11-21T12:00:00Z");
    reconciled(item, file);
    EXPECT_EQ(photo(), "p 3");
    item.version = 2;
    item.sha256 = "new content";
    index_->upsert(item);
    EXPECT_EQ(photo(), "") << "the new content is elsewhere";
    item.version = 1;
    reconciled(item, file);
    item.version = 3;
    index_->upsert(item);
    EXPECT_EQ(photo(), "p 3") << "a new version of the same content";
    index_->markDeleted("p", now_);
    EXPECT_EQ(photo(), "");
    index_->upsert(item);
    fs::rename(file, folder_ / "elsewhere");
    fs::create_symlink(folder_ / "elsewhere", file);
    EXPECT_EQ(photo(), "");
    fs::rename(folder_ / "elsewhere", file);
    EXPECT_EQ(photo(), "p 3");
    SyncRoots::remove(*index_, "mirror");
    EXPECT_EQ(photo(), "");
    fs::copy_file(file, offline_ / "p.jpg");
    reconciled(item, offline_ / "p.jpg", LocalCopies::offlineRoot);
    EXPECT_EQ(photo(), "p 3");
    fs::remove(offline_ / "p.jpg");
    EXPECT_EQ(photo(), "");
}

TEST_F(WidgetPublisherTest, OnlyWhatIsNewIsWritten) {
    const auto inode = [] { return localStat(WidgetStore::snapshotURL()).value().inode; };
    index_->setPinned("folder", true);
    const auto file = picture("p", "2023-11-21T12:00:00Z");
    const auto first = publish();
    const auto written = inode();
    EXPECT_FALSE(publish().isNew);
    EXPECT_FALSE(WidgetPublisher(index_, offline_).publish(now_ + std::chrono::hours(2)).isNew);
    EXPECT_EQ(inode(), written);

    fs::remove(WidgetStore::thumbnailURL(*first.snapshot.onThisDay));
    EXPECT_TRUE(publish().isNew) << "somebody removed the thumbnail";
    EXPECT_TRUE(fs::exists(WidgetStore::thumbnailURL(*first.snapshot.onThisDay)));
    index_->upsert(fileItem("b", "root"));
    index_->setPinned("b", true);
    EXPECT_EQ(publish().snapshot.onThisDay, first.snapshot.onThisDay);
    writeFile(file, makeThumbnail(KORVANE_SOURCE_DIR "/examples/lake.jpg", 32));
    reconciled(pictureItem("p", "2023-11-21T12:00:00Z"), file);
    EXPECT_NE(publish().snapshot.onThisDay->thumbnailFile, first.snapshot.onThisDay->thumbnailFile)
        << "other bytes have another name";

    WidgetStore::setHideContent(true);
    EXPECT_EQ(publish().snapshot, WidgetSnapshot::hidden);
    EXPECT_FALSE(publish().isNew);
    WidgetStore::setHideContent(false);
    EXPECT_EQ(photo(), "p 3");
    now_ += std::chrono::hours(24);
    EXPECT_EQ(photo(), "");
}

} // namespace
} // namespace Korvane::Testing
