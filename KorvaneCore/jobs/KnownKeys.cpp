#include "KorvaneCore/jobs/KnownKeys.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/api/PageCursor.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"

#include <utility>

namespace Korvane {

namespace {

constexpr int pageSize = 500;

std::optional<KnownKey> opened(const KRCrypto::MasterKey& masterKey,
                               const std::optional<KRCrypto::Bytes>& wrapped) {
    if (!wrapped)
        return std::nullopt;
    try {
        return KnownKey{*wrapped, masterKey.unwrapFileKey(*wrapped)};
    } catch (const KRCrypto::KRCryptoError&) {
        return std::nullopt; // another account's, or damaged: no candidate
    }
}

asio::awaitable<std::optional<KnownKey>>
fromTrash(const JobContext& context, const KRCrypto::MasterKey& masterKey, const std::string& blobId) {
    for (PageCursor cursor;;) {
        auto page = co_await context.api->trash(cursor.value(), pageSize);
        for (const auto& file : page.files)
            if (file.blobId == blobId)
                if (auto key = opened(masterKey, file.wrappedFileKey))
                    co_return key;
        if (!cursor.advance(std::move(page.nextCursor), "ChildrenPage"))
            co_return std::nullopt;
    }
}

asio::awaitable<std::optional<KnownKey>> fromVersions(const JobContext& context,
                                                      const KRCrypto::MasterKey& masterKey,
                                                      std::string fileId, const std::string& blobId) {
    try {
        for (const auto& version : co_await context.api->versions(std::move(fileId)))
            if (version.blobId == blobId)
                if (auto key = opened(masterKey, version.wrappedFileKey))
                    co_return key;
    } catch (const APIError& error) {
        if (!error.is<APIError::NotFound>())
            throw;
    }
    co_return std::nullopt;
}

} // namespace

asio::awaitable<KnownKey> knownKey(const JobContext& context, const KRCrypto::MasterKey& masterKey,
                                   const std::string& blobId, const std::optional<std::string>& fileId,
                                   const std::optional<KRCrypto::Bytes>& answered) {
    auto key = opened(masterKey, answered);
    if (!key)
        key = opened(masterKey, context.index->wrappedKey(blobId));
    if (!key)
        key = co_await fromTrash(context, masterKey, blobId);
    if (!key && fileId)
        key = co_await fromVersions(context, masterKey, *fileId, blobId);
    if (!key)
        throw TransferQueue::PermanentFailure(
            "This content already exists in an older file version whose key isn't available on this device. "
            "Restore that version instead.");
    co_return std::move(*key);
}

} // namespace Korvane
