#include "tests/support/LocalService.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

namespace Korvane::Testing {
namespace {

namespace fs = std::filesystem;

const KRCrypto::Bytes meta{1, 2, 3};

class Entries : public testing::Test {
protected:
    RemoteFolder makeFolder(const std::string& parent, const std::string& name) {
        return device_.run(api_.createFolder({std::nullopt, parent, meta, name}));
    }

    RemoteFile makeFile(const std::string& folder, const std::string& name) {
        return device_.upload(folder, name, name + " sealed bytes of sixteen or more", 100, "blob-" + name);
    }

    /// Files on the service's disk that hold blobs and thumbnails.
    [[nodiscard]] long filesOnDisk() const {
        long count = 0;
        for (const auto* name : {"blobs", "thumbnails", "uploads"})
            for (const auto& entry : fs::recursive_directory_iterator(service_.folder() / name))
                count += entry.is_regular_file() ? 1 : 0;
        return count;
    }

    LocalService service_;
    TestDevice device_{service_};
    APIClient& api_ = *device_.api();
    std::string root_ = device_.signUp("ann@example.org").user.rootFolderId;
};

TEST_F(Entries, EachRefusalOfATreeChangeHasItsReason) {
    const auto outer = makeFolder(root_, "outer");
    const auto inner = makeFolder(outer.id, "inner");
    const auto other = makeFolder(root_, "other");
    const auto trashed = makeFolder(root_, "trashed");
    const auto below = makeFolder(trashed.id, "below");
    const auto file = makeFile(root_, "file");
    device_.run(api_.deleteFolder(trashed.id));
    const UpdateFolderRequest stale{std::nullopt, meta, std::nullopt,
                                    *outer.updatedAt - std::chrono::milliseconds(1)};

    const std::string taken = "An item with that name already exists";
    const std::string inTrash = "The destination folder is in the Trash";
    const std::string conflict = "The file was changed on another device";
    const std::tuple<const char*, std::function<asio::awaitable<RemoteFolder>()>, std::string> table[] = {
        {"folder beside a folder of its name", [&] { return api_.createFolder({{}, root_, meta, "outer"}); },
         taken},
        {"folder beside a file of its name", [&] { return api_.createFolder({{}, root_, meta, "file"}); },
         taken},
        {"folder beside a trashed one", [&] { return api_.createFolder({{}, root_, meta, "trashed"}); }, ""},
        {"restore over the one that took its name", [&] { return api_.restoreFolder(trashed.id); }, taken},
        {"rename to a taken name", [&] { return api_.updateFolder(other.id, {{}, meta, "outer", {}}); },
         taken},
        {"rename to its own name", [&] { return api_.updateFolder(other.id, {{}, meta, "other", {}}); }, ""},
        {"into a trashed folder", [&] { return api_.createFolder({{}, trashed.id, meta, "x"}); }, inTrash},
        {"below a trashed folder", [&] { return api_.createFolder({{}, below.id, meta, "x"}); }, inTrash},
        {"into no folder", [&] { return api_.createFolder({{}, "nowhere", meta, "x"}); },
         "The destination folder no longer exists"},
        {"into itself", [&] { return api_.updateFolder(outer.id, {inner.id, {}, {}, {}}); },
         "Bad request: a folder cannot move into itself"},
        {"the root", [&] { return api_.deleteFolder(root_); }, "Bad request: the root folder stays as it is"},
        {"after another device", [&] { return api_.updateFolder(outer.id, stale); }, conflict},
        {"a folder that is trashed already", [&] { return api_.deleteFolder(trashed.id); }, ""},
        {"an id with a slash", [&] { return api_.createFolder({"a/b", root_, meta, "y"}); },
         "Bad request: an identifier has 1 to 64 letters, digits, \"-\" and \"_\""},
        {"a taken id", [&] { return api_.createFolder({file.id, root_, meta, "z"}); },
         "Server error 409 id_taken: the identifier is taken"},
    };
    for (const auto& [what, call, sentence] : table)
        EXPECT_EQ(device_.failure(call()), sentence) << what;
}

TEST_F(Entries, AFileChangesByVersionsThatCanComeBack) {
    const auto first = makeFile(root_, "file");
    makeFile(root_, "second");
    CreateFileRequest next{{}, root_, {4, 5},   "file", "blob-second", KRCrypto::Bytes(61, 9),
                           1,  38,    first.id, 1};
    next.encryptedSize = device_.run(api_.children(root_, {}, 10)).files[1].encryptedSize;
    for (auto& candidate : device_.run(api_.children(root_, {}, 10)).files)
        if (candidate.blobId == "blob-second")
            next.encryptedSize = candidate.encryptedSize;
    const auto second = device_.run(api_.createFile(next));
    EXPECT_EQ(second.version, 2);
    EXPECT_EQ(device_.run(api_.createFile(next)), second) << "sent twice";

    next.metaEnc = {6};
    try {
        device_.run(api_.createFile(next));
        ADD_FAILURE() << "a version based on an old one was taken";
    } catch (const APIError& error) {
        ASSERT_TRUE(error.is<APIError::VersionConflict>());
        EXPECT_EQ(error.as<APIError::VersionConflict>()->file, second);
    }
    const auto restored = device_.run(api_.restoreVersion(first.id, 1));
    EXPECT_EQ(restored.version, 3);
    EXPECT_EQ(restored.blobId, first.blobId);
    EXPECT_EQ(restored.wrappedFileKey, first.wrappedFileKey);
    EXPECT_EQ(device_.run(api_.versions(first.id)).size(), 3U);
    EXPECT_EQ(device_.failure(api_.restoreVersion(first.id, 9)), "Not found");
}

TEST_F(Entries, PurgingFreesRoomAndDiskOfWhatNothingElseUses) {
    const auto folder = makeFolder(root_, "folder");
    const auto deep = makeFolder(folder.id, "deep");
    const auto kept = makeFile(root_, "kept");
    const auto lost = makeFile(deep.id, "lost");
    device_.run(api_.uploadThumbnail(lost.id, {1, 2, 3}));
    CreateFileRequest twin{{}, deep.id, meta, "twin", kept.blobId, kept.wrappedFileKey, 1, kept.encryptedSize,
                           {}, {}};
    device_.run(api_.createFile(twin));
    EXPECT_EQ(device_.run(api_.usage()).usedBytes, kept.encryptedSize + lost.encryptedSize);
    EXPECT_EQ(filesOnDisk(), 3);

    EXPECT_EQ(device_.failure(api_.deletePermanently(folder.id)), "Not found") << "not in the trash";
    device_.run(api_.deleteFolder(folder.id));
    EXPECT_EQ(device_.run(api_.trash({}, 10)).folders.size(), 1U);
    device_.run(api_.emptyTrash());
    EXPECT_EQ(device_.run(api_.usage()).usedBytes, kept.encryptedSize);
    EXPECT_EQ(filesOnDisk(), 1);
    EXPECT_EQ(device_.failure(api_.file(lost.id)), "Not found");
    EXPECT_EQ(device_.failure(api_.file(kept.id)), "");
}

TEST_F(Entries, PagesHoldEveryChildOnce) {
    std::set<std::string> made;
    for (int i = 0; i < 7; ++i)
        made.insert(makeFolder(root_, "folder" + std::to_string(i)).id);
    for (int i = 0; i < 5; ++i)
        made.insert(makeFile(root_, "file" + std::to_string(i)).id);
    for (const int limit : {1, 2, 3, 5, 7, 12, 100}) {
        std::multiset<std::string> seen;
        std::optional<std::string> cursor;
        do {
            const auto page = device_.run(api_.children(root_, cursor, limit));
            EXPECT_LE(page.folders.size() + page.files.size(), static_cast<std::size_t>(limit));
            for (const auto& folder : page.folders)
                seen.insert(folder.id);
            for (const auto& file : page.files)
                seen.insert(file.id);
            cursor = page.nextCursor;
        } while (cursor);
        EXPECT_EQ(seen, std::multiset<std::string>(made.begin(), made.end())) << limit;
    }
}

TEST_F(Entries, ChangesMissNothingWhileOthersWrite) {
    constexpr int each = 40;
    std::vector<std::unique_ptr<TestDevice>> devices;
    for (int w = 0; w < 3; ++w)
        devices.emplace_back(std::make_unique<TestDevice>(service_))->signIn("ann@example.org");
    std::vector<std::jthread> writers;
    for (int w = 0; w < 3; ++w)
        writers.emplace_back([&, w] {
            auto& writer = *devices[static_cast<std::size_t>(w)];
            for (int i = 0; i < each; ++i)
                writer.run(writer.api()->createFolder({{}, root_, meta, std::to_string(w * each + i)}));
        });
    std::set<std::string> seen;
    std::int64_t since = 0;
    while (std::ssize(seen) < 3 * each + 1) {
        const auto page = device_.run(api_.changes(since, 7));
        for (const auto& change : page.changes) {
            EXPECT_EQ(change.seq, ++since);
            if (change.entityType == EntityType::folder)
                seen.insert(change.entityId);
        }
    }
}

TEST_F(Entries, AnotherAccountFindsNothing) {
    const auto folder = makeFolder(root_, "folder");
    const auto file = makeFile(root_, "file");
    const auto share = device_.run(api_.createShare({"file", file.id, {}, {}, {}}));
    const auto upload = device_.run(api_.createUpload({"new", 100, 1}));
    const auto here = device_.run(api_.me()).device.id;
    TestDevice other(service_);
    other.signUp("bob@example.org");
    APIClient& api = *other.api();
    const std::string missing = "The destination folder no longer exists";
    EXPECT_EQ(other.failure(api.folder(folder.id)), missing);
    EXPECT_EQ(other.failure(api.children(folder.id, {}, 10)), missing);
    EXPECT_EQ(other.failure(api.deleteFolder(folder.id)), missing);
    EXPECT_EQ(other.failure(api.createFolder({{}, folder.id, meta, "x"})), missing);
    EXPECT_EQ(other.failure(api.file(file.id)), "Not found");
    EXPECT_EQ(other.failure(api.updateFile(file.id, {})), "Not found");
    EXPECT_EQ(other.failure(api.deleteFile(file.id)), "Not found");
    EXPECT_EQ(other.failure(api.downloadInfo(file.id)), "Not found");
    EXPECT_EQ(other.failure(api.uploadThumbnail(file.id, {1})), "Not found");
    EXPECT_EQ(other.failure(api.versions(file.id)), "Not found");
    EXPECT_EQ(other.failure(api.share(share.id)), "Not found");
    EXPECT_EQ(other.failure(api.uploadStatus(upload.uploadId.value())), "Not found");
    EXPECT_EQ(other.failure(api.revokeDevice(here)), "Not found");
    CreateFileRequest stolen{{}, root_, meta, "x", file.blobId, file.wrappedFileKey, 1, file.encryptedSize,
                             {}, {}};
    EXPECT_EQ(other.failure(api.createFile(stolen)), "Not found") << "another account's blob";
    EXPECT_EQ(other.run(api.changes(0, 100)).changes.size(), 2U) << "its own device and root";
}

TEST_F(Entries, SharesAreKeptWithTheirEntries) {
    const auto file = makeFile(root_, "file");
    ShareEntry entry{"e1", "file", file.id, {}, meta, KRCrypto::Bytes{9}, file.blobId, 10, 1};
    const auto share =
        device_.run(api_.createShare({"file", file.id, KRCrypto::Bytes{5}, service_.clock->now(), {entry}}));
    auto second = entry;
    second.entryId = "e2";
    entry.metaEnc = {8};
    device_.run(api_.updateShareEntries(share.id, {entry, second}, {}));
    EXPECT_EQ(device_.run(api_.share(share.id)).entries, (std::vector<ShareEntry>{entry, second}));
    device_.run(api_.updateShareEntries(share.id, {}, {"e1"}));
    EXPECT_EQ(device_.run(api_.share(share.id)).entries, std::vector<ShareEntry>{second});
    EXPECT_EQ(device_.run(api_.updateShare(share.id, std::nullopt)).expiresAt, std::nullopt);
    EXPECT_EQ(device_.run(api_.shares()).size(), 1U);
    device_.run(api_.revokeShare(share.id));
    EXPECT_EQ(device_.run(api_.shares()).size(), 0U);
    EXPECT_EQ(device_.failure(api_.updateShareEntries(share.id, {entry}, {})), "Not found");
}

} // namespace
} // namespace Korvane::Testing
