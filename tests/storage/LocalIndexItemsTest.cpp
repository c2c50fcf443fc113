// Items and the journal.
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/MasterKey.hpp"
#include "KRCrypto/UnicodeText.hpp"
#include "KorvaneCore/api/records/RemoteFile.hpp"
#include "KorvaneCore/api/records/RemoteFolder.hpp"
#include "tests/storage/IndexFixture.hpp"

namespace Korvane::Testing {
namespace {

using KRCrypto::FileMeta;
using KRCrypto::FolderMeta;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Entry = LocalIndex::JournalEntry;
using enum LocalIndex::JournalKind;

const IndexItem::Date noon{std::chrono::seconds(1'700'000'000)};

using LocalIndexItems = IndexTest;

IndexItem complete() {
    return {.id = "f",
            .isFolder = false,
            .parentId = "root",
            .name = "Übung.PDF",
            .mime = "application/pdf",
            .size = 1LL << 40,
            .sha256 = std::string(64, 'a'),
            .mtime = noon,
            .blobId = "blob",
            .encryptedSize = (1LL << 40) + 29,
            .chunkCount = 104'858,
            .wrappedFileKey = IndexItem::Bytes{1, 0, 2},
            .version = 3,
            .hasThumbnail = true,
            .metaEnc = {0, 255},
            .nameBlindIndex = "blind",
            .createdAt = noon,
            .updatedAt = noon + std::chrono::microseconds(1),
            .deletedAt = noon,
            .createdByDeviceId = "device",
            .seq = 9};
}

TEST_F(LocalIndexItems, UpsertKeepsEveryFieldButNeverLowersTheSequence) {
    index.upsert(complete());
    EXPECT_EQ(index.item("f"), complete());
    EXPECT_EQ(tables.query("SELECT name_lower FROM items").at(0).string("name_lower"), "übung.pdf");

    auto bare = folderItem("f", "root", 5);
    index.upsert(bare);
    bare.seq = 9;
    EXPECT_EQ(index.item("f"), bare);
    index.setHasThumbnail("f", true);
    index.markDeleted("f", noon);
    EXPECT_EQ(index.item("f")->deletedAt, noon);
    EXPECT_TRUE(index.item("f")->hasThumbnail);

    bare.name = "\xff";
    EXPECT_THROW(index.upsert({{fileItem("g", "root"), bare}}), KRCrypto::KRCryptoError);
    EXPECT_EQ(index.item("g"), std::nullopt) << "all or none";
    EXPECT_EQ(index.child("root", "\xff"), std::nullopt);
    EXPECT_THAT(index.search("\xff", 9), IsEmpty());
}

TEST_F(LocalIndexItems, JournalTellsOfMovesAndPurgesOnly) {
    index.upsert(fileItem("new", "a", 1));
    index.upsert(fileItem("new", "a", 2));
    index.upsert(fileItem("rootless", std::nullopt, 3));
    index.upsert(fileItem("rootless", "a", 4));
    EXPECT_EQ(index.maxJournalSeq(), 0);
    index.upsert(fileItem("new", "b", 5));
    index.upsert(fileItem("new", "b", 6));
    index.upsert(fileItem("new", std::nullopt, 7));
    index.purge("rootless", 8);
    index.purge("unknown", 8);
    index.upsert(fileItem("silent", "a", 9));
    index.remove("silent");
    EXPECT_THAT(index.journalEntries(0, 9),
                ElementsAre(Entry{5, "new", "a", movedOut}, Entry{7, "new", "b", movedOut},
                            Entry{8, "rootless", "a", purged}, Entry{8, "unknown", {}, purged}));
    EXPECT_THAT(index.journalEntries(5, 7), ElementsAre(Entry{7, "new", "b", movedOut}));
    EXPECT_EQ(index.maxJournalSeq(), 8);
    EXPECT_EQ(index.maxItemSeq(), 7);
    EXPECT_THAT(namesOf(index.items(6, 9)), ElementsAre("new"));
    EXPECT_EQ(index.item("silent"), std::nullopt);
}

TEST_F(LocalIndexItems, JournalKeepsItsNewest20000Entries) {
    tables.execute("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n LIMIT 20004) "
                   "INSERT INTO item_journal(seq,item_id,kind) SELECT i, 'x', 0 FROM n");
    index.purge("x", 20'005);
    const auto entries = index.journalEntries(0, 30'000);
    ASSERT_EQ(entries.size(), 20'000U);
    EXPECT_EQ(entries.front().seq, 6);
    EXPECT_EQ(entries.back().seq, 20'005);
}

TEST_F(LocalIndexItems, ListsFoldersThenFilesByName) {
    auto trashed = fileItem("a0", "r");
    trashed.deletedAt = noon;
    index.upsert({{folderItem("r", {}), fileItem("B", "r"), fileItem("a", "r"), folderItem("z", "r"),
                   folderItem("Y", "r"), trashed, fileItem("deep", "z")}});
    EXPECT_THAT(namesOf(index.children("r")), ElementsAre("Y", "z", "a", "B"));
    EXPECT_THAT(namesOf(index.children("r", true)), ElementsAre("Y", "z", "a", "a0", "B"));
    EXPECT_EQ(index.child("r", "A")->id, "a");
    EXPECT_EQ(index.child("r", "a0"), std::nullopt) << "in the Trash";
    EXPECT_EQ(index.item("/Z//DEEP/", "r")->id, "deep");
    EXPECT_EQ(index.item("z/deep/x", "r"), std::nullopt);
    EXPECT_EQ(index.item("/", "r")->id, "r");
    EXPECT_EQ(index.item("", "unknown"), std::nullopt);
    EXPECT_EQ(index.pathComponents("deep", "r"), (std::vector<std::string>{"z", "deep"}));
    EXPECT_EQ(index.pathComponents("r", "r"), std::vector<std::string>());
    EXPECT_EQ(index.pathComponents("deep", "Y"), std::nullopt);
    EXPECT_THAT(namesOf(index.ancestors("deep")), ElementsAre("z", "r"));
    EXPECT_TRUE(index.isDescendant("deep", "r"));
    EXPECT_FALSE(index.isDescendant("r", "r"));
    EXPECT_THAT(namesOf(index.roots()), ElementsAre("r"));
}

TEST_F(LocalIndexItems, SearchFindsExactlyTheNamesWithTheText) {
    const std::vector<std::string> names{
        "50%_off", "50x off", "%",  "_",     "\\",       "\\%_", "'; DROP TABLE items; --",
        "a\nb",    "",        "Äö", "äÖ.md", "İstanbul", "ΣΑΣ",  "\U0001f4f7 50%"};
    std::vector<IndexItem> items{folderItem("%root", {})};
    for (const auto& name : names) {
        items.push_back(fileItem("id" + std::to_string(items.size()), "%root"));
        items.back().name = name;
    }
    index.upsert(items);
    for (const auto& text : names) {
        std::vector<std::string> expected;
        std::ranges::copy_if(names, std::back_inserter(expected), [&](const std::string& name) {
            return !text.empty() &&
                   KRCrypto::toLower(name).find(KRCrypto::toLower(text)) != std::string::npos;
        });
        EXPECT_THAT(namesOf(index.search(text, -1)), testing::UnorderedElementsAreArray(expected)) << text;
    }
    EXPECT_THAT(namesOf(index.search("5", 2)), ElementsAre("50%_off", "50x off"));
}

TEST_F(LocalIndexItems, OnlyWhatIsNotUnderTheTrashIsLive) {
    auto trashed = folderItem("gone", "r");
    trashed.deletedAt = noon;
    auto received = fileItem("received", "r");
    received.blobId = "drop_1";
    received.updatedAt = noon;
    auto late = fileItem("late", "gone/in");
    late.blobId = "blob";
    late.wrappedFileKey = IndexItem::Bytes{7};
    late.updatedAt = noon + std::chrono::hours(1);
    index.upsert({{folderItem("r", {}), trashed, folderItem("gone/in", "gone"), late, received,
                   fileItem("lost", "nowhere")}});
    EXPECT_THAT(namesOf(index.liveFileItems()), ElementsAre("received"));
    EXPECT_THAT(namesOf(index.recentFiles(2)), ElementsAre("late", "received"));
    EXPECT_THAT(namesOf(index.receivedFiles()), ElementsAre("received"));
    EXPECT_EQ(index.counts(), (LocalIndex::Counts{3, 2, 30}));
    EXPECT_EQ(index.folderSize("r"), 10);
    EXPECT_EQ(index.folderSize("gone"), 10);
    EXPECT_THAT(index.descendants("r"), ElementsAre(IndexedPath{"received", received}));
    EXPECT_THAT(index.descendants("gone"),
                UnorderedElementsAre(IndexedPath{"gone/in", folderItem("gone/in", "gone")},
                                     IndexedPath{"gone/in/late", late}));
    EXPECT_EQ(index.wrappedKey("blob"), IndexItem::Bytes{7});
    EXPECT_EQ(index.wrappedKey("drop_1"), std::nullopt);
    index.reset();
    EXPECT_EQ(index.counts(), LocalIndex::Counts());
}

TEST_F(LocalIndexItems, ParentsThatRunInACircleEndEveryWalk) {
    index.upsert({{folderItem("a", "b"), folderItem("b", "c"), folderItem("c", "a"), fileItem("f", "b"),
                   folderItem("self", "self"), fileItem("g", "self")}});

    struct Case {
        std::string id;
        std::vector<std::string> ancestors;
        std::vector<std::string> below;
    };

    for (const auto& [id, ancestors, below] : std::vector<Case>{{"a", {"b", "c"}, {"c", "c/b", "c/b/f"}},
                                                                {"f", {"b", "c", "a"}, {}},
                                                                {"self", {}, {"g"}},
                                                                {"g", {"self"}, {}}}) {
        EXPECT_EQ(namesOf(index.ancestors(id)), ancestors) << id;
        std::vector<std::string> paths;
        for (const auto& found : index.descendants(id))
            paths.push_back(found.relativePath);
        EXPECT_THAT(paths, testing::UnorderedElementsAreArray(below)) << id;
        EXPECT_EQ(index.folderSize(id), below.empty() ? 0 : 10) << id;
        EXPECT_EQ(index.pathComponents(id, "root"), std::nullopt) << id;
    }
    EXPECT_THAT(index.liveFileItems(), IsEmpty());
    EXPECT_EQ(index.item("c/b/a/c/b/f", "a")->id, "f");
}

TEST_F(LocalIndexItems, ApplyOpensTheMetadataOrChangesNothing) {
    const auto key = KRCrypto::MasterKey::generate();
    const auto fileMeta =
        key.sealMeta(FileMeta("a.txt", "text/plain", 5, std::string(64, 'b'), "2023-11-14T22:13:20Z"));
    const auto folderMeta = key.sealMeta(FolderMeta("Docs"));
    RemoteFile file;
    file.id = "f", file.folderId = "d", file.blobId = "b", file.nameBlindIndex = "x",
    file.createdByDeviceId = "pc";
    file.metaEnc = fileMeta, file.encryptedSize = 50, file.chunkCount = 1, file.wrappedFileKey = {4};
    file.version = 2, file.createdAt = noon, file.seq = 4;
    RemoteFolder folder;
    folder.id = "d", folder.parentId = "r", folder.metaEnc = folderMeta, folder.updatedAt = noon,
    folder.seq = 3;
    RemoteFolder root;
    root.id = "r";
    index.apply(folder, key);
    index.apply(root, key);
    index.apply(file, key);
    auto expectedFile = fileItem("f", "d", 4);
    expectedFile.name = "a.txt", expectedFile.mime = "text/plain", expectedFile.size = 5;
    expectedFile.sha256 = std::string(64, 'b'), expectedFile.mtime = noon, expectedFile.blobId = "b";
    expectedFile.encryptedSize = 50, expectedFile.chunkCount = 1, expectedFile.version = 2;
    expectedFile.wrappedFileKey = IndexItem::Bytes{4}, expectedFile.metaEnc = fileMeta;
    expectedFile.nameBlindIndex = "x", expectedFile.createdAt = noon, expectedFile.createdByDeviceId = "pc";
    EXPECT_EQ(index.item("a.txt", "d"), expectedFile);
    auto expected = folderItem("d", "r", 3);
    expected.name = "Docs", expected.metaEnc = folderMeta, expected.updatedAt = noon;
    EXPECT_EQ(index.item("d"), expected);
    EXPECT_EQ(index.item("r")->name, "");

    const auto before = contentOf(tables);
    for (const auto& meta :
         {folderMeta, KRCrypto::Bytes{}, KRCrypto::MasterKey::generate().sealMeta(FolderMeta("x"))}) {
        file.metaEnc = meta;
        EXPECT_THROW(index.apply(file, key), KRCrypto::KRCryptoError);
    }
    for (const auto& meta :
         {std::optional(fileMeta), std::optional<KRCrypto::Bytes>(), std::optional(KRCrypto::Bytes{1})}) {
        folder.metaEnc = meta;
        EXPECT_THROW(index.apply(folder, key), KRCrypto::KRCryptoError);
    }
    EXPECT_EQ(contentOf(tables), before);
    file.metaEnc = key.sealMeta(FileMeta("a", "", 0, std::string(64, 'b'), "yesterday"));
    index.apply(file, key);
    EXPECT_EQ(index.item("f")->mtime, std::nullopt);
}

} // namespace
} // namespace Korvane::Testing
