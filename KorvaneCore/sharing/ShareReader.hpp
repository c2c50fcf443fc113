#pragma once

#include "KRCrypto/EntryMeta.hpp"
#include "KRCrypto/SecretBytes.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/api/BlobTransport.hpp"
#include "KorvaneCore/json/SecretText.hpp"
#include "KorvaneCore/sharing/ShareLink.hpp"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace Korvane {

/// What a link leads to, for whoever has it; nobody is signed in. In this order: load(), open(), download().
/// The service is told the link's token and nothing of its key or password.
///
/// Operations are coroutines on the caller's strand, one at a time. They throw ShareError, APIError and
/// APIErrorInfo, KRCryptoError for content that was altered, and FileError.
class ShareReader {
public:
    /// Another chunk size than the usual is for tests.
    ShareReader(std::shared_ptr<APIClient> api, std::shared_ptr<BlobTransport> transport, ShareLink link,
                std::int64_t chunkSize = KRCrypto::effectiveChunkSize());

    /// Asks the service for the share. Whether a password is needed.
    asio::awaitable<bool> load();

    /// Opens the names of all that is shared; the password is left out where none is needed.
    asio::awaitable<void> open(std::optional<SecretText> password);

    /// Puts all of it into `folder`, made when missing, and tells `placed` each file's place. What is there
    /// already stays: the share gets a numbered name beside it. Files are there whole or not at all; those
    /// placed before a failure stay.
    asio::awaitable<void> download(std::filesystem::path folder,
                                   std::function<void(const std::filesystem::path&)> placed);

private:
    struct Entry {
        PublicShareEntry record;
        KRCrypto::EntryMeta meta;
    };

    asio::awaitable<std::filesystem::path> fetch(Entry entry, std::filesystem::path destination);
    asio::awaitable<DownloadInfo> downloadInfo(std::string entryId);
    void requireFitting(const Entry& entry, const DownloadInfo& info) const;

    const std::shared_ptr<APIClient> api_;
    const std::shared_ptr<BlobTransport> transport_;
    const ShareLink link_;
    const std::int64_t chunkSize_;
    PublicShare share_;
    KRCrypto::SecretBytes entryKey_;
    std::vector<Entry> entries_;
};

} // namespace Korvane
