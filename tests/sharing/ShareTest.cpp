#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Sha256.hpp"
#include "KorvaneCore/api/ForegroundBlobTransport.hpp"
#include "KorvaneCore/sharing/ShareError.hpp"
#include "KorvaneCore/sharing/ShareReader.hpp"
#include "KorvaneCore/sharing/ShareService.hpp"
#include "tests/support/LocalService.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>

namespace Korvane::Testing {
namespace {

namespace fs = std::filesystem;
using Kind = ShareError::Kind;

constexpr std::int64_t chunk = 40;

/// An account with a file and a folder of files, and somebody without an account.
class Sharing : public testing::Test {
protected:
    Sharing() {
        root_ = owner_.signUp("ann@example.org").user.rootFolderId;
        RemoteFolder root;
        root.id = root_;
        index_->apply(root, key_);
        const auto papers = folder(root_, "Papers");
        note_ = file(root_, "note.txt", "hello");
        file(papers, "long.bin", long_);
        file(folder(papers, "Sub"), "empty", "");
    }

    std::string folder(const std::string& parentId, const std::string& name) {
        const auto made = owner_.run(owner_.api()->createFolder(
            {std::nullopt, parentId, key_.sealMeta(KRCrypto::FolderMeta(name)), key_.nameBlindIndex(name)}));
        index_->apply(made, key_);
        return made.id;
    }

    std::string file(const std::string& folderId, const std::string& name, const std::string& bytes) {
        const auto fileKey = KRCrypto::ChunkCrypto::generateFileKey();
        const auto size = std::ssize(bytes);
        const auto count = KRCrypto::ChunkCrypto::chunkCount(size, chunk);
        const auto digest = KRCrypto::sha256(KRCrypto::asBytes(bytes));
        const auto blobId = key_.blobId(digest);
        const auto created = owner_.run(
            owner_.api()->createUpload({blobId, KRCrypto::ChunkCrypto::encryptedSize(size, chunk), count}));
        for (const auto& part : created.parts.value()) {
            const auto index = part.partNumber - 1;
            const auto plain = bytes.substr(static_cast<std::size_t>(index * chunk), chunk);
            const auto sealed =
                KRCrypto::ChunkCrypto::encryptChunk(fileKey, index, count, KRCrypto::asBytes(plain));
            owner_.run(owner_.api()->putPart(part.url, sealed));
        }
        CompleteUploadRequest request;
        request.folderId = folderId;
        request.metaEnc =
            key_.sealMeta(KRCrypto::FileMeta(name, "text/plain", size, KRCrypto::hexString(digest)));
        request.nameBlindIndex = key_.nameBlindIndex(name);
        request.wrappedFileKey = key_.wrapFileKey(fileKey);
        const auto made = owner_.run(owner_.api()->completeUpload(created.uploadId.value(), request));
        index_->apply(made, key_);
        return made.id;
    }

    ShareService shares() { return {owner_.api(), index_, key_, configuration_}; }

    ShareService::Created share(const std::string& path, std::optional<SecretText> password = {},
                                std::optional<KRJSON::Date> expiresAt = {}) {
        return owner_.run(shares().create(index_->item(std::string_view(path), root_).value(),
                                          std::move(password), expiresAt));
    }

    /// Opens the link as somebody else, into `to`.
    asio::awaitable<bool> opened(SecretText link, std::optional<SecretText> password = {}, fs::path to = {}) {
        ShareReader reader(guest_.api(), std::make_shared<ForegroundBlobTransport>(guest_.api()),
                           ShareLink::parse(link.text()), chunk);
        co_await reader.load();
        co_await reader.open(password);
        co_await reader.download(to.empty() ? into_ : to, [](const fs::path&) {});
        co_return true;
    }

    std::optional<Kind> refusal(asio::awaitable<bool> open) {
        try {
            guest_.run(std::move(open));
        } catch (const ShareError& error) {
            return error.kind();
        }
        return std::nullopt;
    }

    /// Every file below a folder, with its content.
    static std::map<std::string, std::string> tree(const fs::path& folder) {
        std::map<std::string, std::string> files;
        if (fs::exists(folder))
            for (const auto& entry : fs::recursive_directory_iterator(folder))
                if (!entry.is_directory()) {
                    std::ifstream stream(entry.path(), std::ios::binary);
                    files[entry.path().lexically_relative(folder)] = {std::istreambuf_iterator<char>(stream),
                                                                      {}};
                }
        return files;
    }

    static void smallChunks(ServiceSettings& settings) { settings.chunkSize = chunk; }

    LocalService service_{smallChunks};
    TestDevice owner_{service_};
    TestDevice guest_{service_};
    TemporaryFolder folder_;
    fs::path into_ = folder_ / "into";
    std::shared_ptr<LocalIndex> index_ = std::make_shared<LocalIndex>(folder_ / "index.sqlite");
    KRCrypto::MasterKey key_ = KRCrypto::MasterKey::generate();
    KRConfiguration configuration_ = [this] {
        auto configuration = service_.configuration();
        configuration.webBaseURL = KRConfiguration::parseBaseURL("https://web.example.org").value();
        return configuration;
    }();
    std::string root_;
    std::string note_;
    const std::string long_ = std::string(100, 'x') + "end";
};

TEST_F(Sharing, AFileAndAFolderComeBackWholeBesideWhatIsThere) {
    const auto note = share("note.txt");
    const auto papers = share("Papers");
    const std::map<std::string, std::string> once{
        {"note.txt", "hello"}, {"Papers/long.bin", long_}, {"Papers/Sub/empty", ""}};
    guest_.run(opened(note.link));
    guest_.run(opened(papers.link));
    EXPECT_EQ(tree(into_), once);

    auto twice = once;
    for (const auto& [path, bytes] : {std::pair("note (1).txt", "hello"), {"Papers (1)/Sub/empty", ""}})
        twice[path] = bytes;
    twice["Papers (1)/long.bin"] = long_;
    guest_.run(opened(note.link));
    guest_.run(opened(papers.link));
    EXPECT_EQ(tree(into_), twice) << "nothing was replaced";

    EXPECT_FALSE(guest_.run(guest_.api()->hasTokens()));
    for (const auto& listed : owner_.run(shares().list())) {
        EXPECT_EQ(listed.share.views, 2);
        EXPECT_EQ(listed.share.downloads, listed.share.id == note.share.id ? 2 : 4);
        EXPECT_TRUE(listed.hasKey);
    }
}

TEST_F(Sharing, APasswordIsNeededBesideTheLink) {
    const auto shared = share("note.txt", "secret");
    EXPECT_EQ(refusal(opened(shared.link)), Kind::passwordNeeded);
    EXPECT_EQ(refusal(opened(shared.link, "Secret")), Kind::wrongPassword);
    EXPECT_TRUE(tree(into_).empty());
    guest_.run(opened(shared.link, "secret"));
    EXPECT_EQ(tree(into_).size(), 1U);
    EXPECT_THROW(share("note.txt", ""), KRCrypto::KRCryptoError);
    guest_.run(opened(share("note.txt").link, "not asked for"));
}

TEST_F(Sharing, AShareEndsWithItsTimeItsOwnersWillOrItsFile) {
    const auto brief = share("note.txt", {}, service_.clock->now() + std::chrono::hours(1));
    const auto gone = share("note.txt");
    const auto revoked = share("note.txt");
    guest_.run(opened(brief.link));
    service_.clock->advance(std::chrono::hours(1));
    EXPECT_EQ(refusal(opened(brief.link)), Kind::expired);

    owner_.run(shares().revoke(revoked.share.id));
    EXPECT_EQ(refusal(opened(revoked.link)), Kind::revoked);
    EXPECT_EQ(index_->shareKeys().size(), 2U);
    EXPECT_THROW(owner_.run(shares().revoke(revoked.share.id)), ShareError);

    owner_.run(owner_.api()->deleteFile(note_));
    EXPECT_EQ(refusal(opened(gone.link)), Kind::gone);
    owner_.run(owner_.api()->deleteFolder(index_->item(std::string_view("Papers"), root_)->id));
    EXPECT_EQ(refusal(opened(share("Papers/Sub").link)), Kind::gone) << "below something in the trash";

    auto text = std::string(gone.link.text());
    text.replace(text.find("/s/") + 3, 1, "-");
    EXPECT_EQ(refusal(opened(text)), Kind::unknown);
    const auto other = "#" + std::string(KRCrypto::LinkKey::generate().fragment().text());
    EXPECT_EQ(refusal(opened(std::string(gone.link.text()).substr(0, gone.link.text().find('#')) + other)),
              Kind::wrongKey);
    EXPECT_EQ(tree(into_).size(), 1U);
}

TEST_F(Sharing, WhatWasAlteredIsNotTaken) {
    using Entries = std::vector<ShareEntry>;
    const auto files = [](Entries& entries) {
        std::vector<ShareEntry*> found;
        for (auto& entry : entries)
            if (entry.entityType == "file")
                found.push_back(&entry);
        return found;
    };
    const std::vector<std::pair<const char*, std::function<void(Entries&)>>> lies{
        {"a name", [](Entries& entries) { entries.back().metaEnc.back() ^= 1; }},
        {"a key", [&](Entries& entries) { files(entries)[0]->wrappedKey->back() ^= 1; }},
        {"no key", [&](Entries& entries) { files(entries)[0]->wrappedKey.reset(); }},
        {"a size", [&](Entries& entries) { ++*files(entries)[0]->encryptedSize; }},
        {"a chunk less", [&](Entries& entries) { files(entries)[0]->chunkCount = 7; }},
        {"names on each other's contents",
         [&](Entries& entries) { std::swap(files(entries)[0]->metaEnc, files(entries)[1]->metaEnc); }},
        {"keys of each other",
         [&](Entries& entries) { std::swap(files(entries)[0]->wrappedKey, files(entries)[1]->wrappedKey); }},
        {"a folder in itself",
         [](Entries& entries) {
             for (auto& entry : entries)
                 if (entry.parentEntryId && entry.entityType == "folder")
                     entry.parentEntryId = entry.entryId;
         }},
    };
    for (const auto& [about, lie] : lies) {
        const auto shared = share("Papers");
        auto entries = owner_.run(owner_.api()->share(shared.share.id)).entries;
        lie(entries);
        owner_.run(owner_.api()->updateShareEntries(shared.share.id, entries, {}));
        const auto to = folder_ / about;
        EXPECT_NE(guest_.failure(opened(shared.link, {}, to)), "") << about;
        for (const auto& [path, bytes] : tree(to))
            EXPECT_TRUE(path == "Papers/long.bin" ? bytes == long_ : path == "Papers/Sub/empty")
                << about << " left " << path;
    }
}

TEST_F(Sharing, HostileNamesAndContentsStayInTheDestination) {
    const auto shared = share("Papers");
    const auto entryKey = ShareLink::parse(shared.link.text()).key.bytes();
    auto entries = owner_.run(owner_.api()->share(shared.share.id)).entries;
    for (auto& entry : entries) {
        const auto meta = KRCrypto::openLinkMeta(entryKey, entry.metaEnc);
        if (const auto* file = meta.file()) {
            auto hostile = *file;
            hostile.name = "../../escaped";
            entry.metaEnc = KRCrypto::sealLinkMeta(entryKey, hostile);
        } else {
            entry.metaEnc = KRCrypto::sealLinkMeta(entryKey, KRCrypto::FolderMeta("/.."));
        }
    }
    owner_.run(owner_.api()->updateShareEntries(shared.share.id, entries, {}));
    const auto before = tree(folder_.path()).size();
    guest_.run(opened(shared.link));
    EXPECT_EQ(tree(into_).size(), 2U);
    EXPECT_EQ(tree(folder_.path()).size(), before + 2);
    EXPECT_EQ(std::distance(fs::directory_iterator(into_), {}), 1) << "all in the share's own folder";
}

TEST_F(Sharing, AShareThatCannotBeCompletedIsRevoked) {
    for (int i = 0; i < 1001; ++i) {
        IndexItem item;
        item.id = "folder-" + std::to_string(i);
        item.isFolder = true;
        item.parentId = index_->item(std::string_view("Papers/Sub"), root_)->id;
        item.name = item.id;
        item.metaEnc = key_.sealMeta(KRCrypto::FolderMeta(item.name));
        index_->upsert(item);
    }
    service_->faults().add("PUT /v1/shares/{id}/entries", Fault::Answer{500, "", {}});
    EXPECT_THROW(share("Papers"), APIError);
    EXPECT_TRUE(owner_.run(shares().list()).empty());
    EXPECT_TRUE(index_->shareKeys().empty());
    const auto complete = share("Papers");
    EXPECT_EQ(owner_.run(owner_.api()->share(complete.share.id)).entries.size(), 1005U);
    EXPECT_THROW(owner_.run(shares().create(index_->item(root_).value(), {}, {})), ShareError)
        << "the account as a whole";
}

} // namespace
} // namespace Korvane::Testing
