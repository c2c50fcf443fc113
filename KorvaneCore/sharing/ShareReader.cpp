#include "KorvaneCore/sharing/ShareReader.hpp"

#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/jobs/BlobFetch.hpp"
#include "KorvaneCore/jobs/FileNames.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/PartialFile.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneCore/sharing/ShareError.hpp"
#include "KorvaneCore/sharing/ShareLayout.hpp"

#include <utility>

namespace Korvane {

namespace {

namespace fs = std::filesystem;
using Kind = ShareError::Kind;

/// For the catch block around a call: what the service's refusal means to whoever has the link.
[[noreturn]] void rethrow(const APIErrorInfo& refusal, Kind whenMissing) {
    if (refusal.error.is<APIError::Expired>())
        throw ShareError(refusal.reason() == "revoked" ? Kind::revoked : Kind::expired);
    if (refusal.error.is<APIError::NotFound>())
        throw ShareError(whenMissing);
    throw refusal;
}

fs::path beside(const fs::path& wanted, std::int64_t number) {
    return number == 0 ? wanted
                       : wanted.parent_path() / FileNames::numbered(wanted.filename().string(), number);
}

/// A new folder under that name, or a numbered one.
fs::path makeFolder(const fs::path& wanted) {
    for (std::int64_t n = 0;; ++n) {
        auto folder = beside(wanted, n);
        if (createFolder(folder))
            return folder;
    }
}

fs::path placeFile(const PartialFile& file, const fs::path& wanted) {
    for (std::int64_t n = 0;; ++n) {
        const auto destination = beside(wanted, n);
        const auto error = file.place(destination);
        if (!error)
            return destination;
        if (error != std::errc::file_exists)
            throw FileError("create", destination, error);
    }
}

} // namespace

ShareReader::ShareReader(std::shared_ptr<APIClient> api, std::shared_ptr<BlobTransport> transport,
                         ShareLink link, std::int64_t chunkSize)
    : api_(std::move(api)), transport_(std::move(transport)), link_(std::move(link)), chunkSize_(chunkSize) {}

asio::awaitable<bool> ShareReader::load() {
    try {
        share_ = co_await api_->publicShare(link_.token);
    } catch (const APIErrorInfo& refusal) {
        rethrow(refusal, Kind::unknown);
    }
    co_return share_.passwordSalt.has_value();
}

asio::awaitable<void> ShareReader::open(std::optional<SecretText> password) {
    if (share_.passwordSalt && !password)
        throw ShareError(Kind::passwordNeeded);
    if (!share_.passwordSalt)
        password.reset(); // one that is not asked for is not wrong
    entries_ = co_await offload([this, password] {
        const auto text = password ? std::optional(password->text()) : std::nullopt;
        const auto salt =
            share_.passwordSalt ? std::optional(KRCrypto::ByteView(*share_.passwordSalt)) : std::nullopt;
        entryKey_ = link_.key.entryKey(text, salt, KRCrypto::Argon2Params());
        std::vector<Entry> opened;
        std::size_t closed = 0;
        for (const auto& record : share_.entries)
            try {
                opened.push_back({record, KRCrypto::openLinkMeta(entryKey_, record.metaEnc)});
            } catch (const KRCrypto::KRCryptoError&) {
                ++closed;
            }
        if (opened.empty())
            throw ShareError(password ? Kind::wrongPassword : Kind::wrongKey);
        if (closed > 0)
            throw ShareError(Kind::altered);
        return opened;
    });
}

asio::awaitable<void> ShareReader::download(fs::path folder, std::function<void(const fs::path&)> placed) {
    std::vector<ShareNode> nodes;
    nodes.reserve(entries_.size());
    for (const auto& [record, meta] : entries_)
        nodes.push_back({record.entryId, record.parentEntryId, meta.name(), meta.file() == nullptr});
    const auto targets = shareLayout(nodes);
    const auto shared = targets.front().path;
    const auto root = co_await offload([&] {
        createDirectories(folder);
        return nodes[targets.front().node].isFolder ? makeFolder(folder / shared) : folder / shared;
    });
    // Everything but the first lies below it, and it is new: nothing but this share writes there.
    for (const auto& [node, path] : targets) {
        const auto destination = path == shared ? root : root / path.lexically_relative(shared);
        if (!nodes[node].isFolder)
            placed(co_await fetch(entries_[node], destination));
        else if (path != shared)
            co_await offload([&] { return makeFolder(destination); });
    }
}

asio::awaitable<DownloadInfo> ShareReader::downloadInfo(std::string entryId) {
    try {
        co_return co_await api_->publicShareDownload(link_.token, std::move(entryId));
    } catch (const APIErrorInfo& refusal) {
        rethrow(refusal, Kind::gone);
    }
}

// Before a byte is written: the sizes of the sealed metadata, of the entry and of the content belong
// together.
void ShareReader::requireFitting(const Entry& entry, const DownloadInfo& info) const {
    const auto size = entry.meta.file()->size;
    const auto count = KRCrypto::ChunkCrypto::chunkCount(size, chunkSize_);
    const auto encrypted = KRCrypto::ChunkCrypto::encryptedSize(size, chunkSize_);
    if (entry.record.chunkCount != count || entry.record.encryptedSize != encrypted ||
        info.chunkCount != count || info.encryptedSize != encrypted)
        throw ShareError(Kind::altered);
}

asio::awaitable<fs::path> ShareReader::fetch(Entry entry, fs::path destination) {
    const auto entryId = entry.record.entryId;
    auto info = co_await downloadInfo(entryId);
    requireFitting(entry, info);
    auto fileKey = KRCrypto::unwrapLinkKey(entryKey_, entry.record.wrappedKey.value_or(KRCrypto::Bytes()));
    const auto temporary = destination.parent_path() / (".korvane-" + newUUID() + ".partial");
    std::exception_ptr failure;
    try {
        auto partial = co_await offload([&] { return PartialFile(temporary); });
        BlobFetch blob(transport_, {std::move(fileKey), info.chunkCount, info.encryptedSize, chunkSize_},
                       info.url, [this, entryId]() -> asio::awaitable<std::string> {
                           auto fresh = co_await downloadInfo(entryId);
                           co_return std::move(fresh.url);
                       });
        co_await blob.into(partial, *entry.meta.file(), [](std::int64_t) {});
        co_return co_await offload([&] { return placeFile(partial, destination); });
    } catch (...) {
        failure = std::current_exception();
    }
    std::error_code ignored; // what is thrown says what went wrong
    fs::remove(temporary, ignored);
    std::rethrow_exception(failure);
}

} // namespace Korvane
