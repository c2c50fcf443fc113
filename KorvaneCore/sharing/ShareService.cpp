#include "KorvaneCore/sharing/ShareService.hpp"

#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Random.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneCore/sharing/ShareError.hpp"

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

namespace Korvane {

namespace {

using Kind = ShareError::Kind;

/// Entries in one request: some 700 bytes each, where a service takes a few megabytes.
constexpr std::ptrdiff_t batchSize = 1000;

std::vector<ShareEntry> takeBatch(std::vector<ShareEntry>& entries) {
    const auto end = entries.begin() + std::min(batchSize, std::ssize(entries));
    std::vector<ShareEntry> batch(std::make_move_iterator(entries.begin()), std::make_move_iterator(end));
    entries.erase(entries.begin(), end);
    return batch;
}

} // namespace

ShareService::ShareService(std::shared_ptr<APIClient> api, std::shared_ptr<LocalIndex> index,
                           KRCrypto::MasterKey masterKey, KRConfiguration configuration)
    : api_(std::move(api)),
      index_(std::move(index)),
      masterKey_(std::move(masterKey)),
      configuration_(std::move(configuration)) {}

ShareEntry ShareService::sealedEntry(const IndexItem& item, const KRCrypto::SecretBytes& entryKey) const {
    ShareEntry entry;
    entry.entryId = newUUID();
    entry.entityType = item.isFolder ? "folder" : "file";
    entry.entityId = item.id;
    entry.metaEnc = KRCrypto::sealLinkMeta(entryKey, masterKey_.openMeta(item.metaEnc));
    if (item.isFolder)
        return entry;
    if (!item.wrappedFileKey)
        throw KRCrypto::KRCryptoError(KRCrypto::KRCryptoError::MalformedSealed{});
    entry.wrappedKey = KRCrypto::wrapLinkKey(entryKey, masterKey_.unwrapFileKey(*item.wrappedFileKey));
    entry.blobId = item.blobId;
    entry.encryptedSize = item.encryptedSize;
    entry.chunkCount = item.chunkCount;
    return entry;
}

// The item first; what lies in the trash stays out, and so does all below it.
std::vector<ShareEntry> ShareService::sealedEntries(const IndexItem& item,
                                                    const KRCrypto::SecretBytes& entryKey) const {
    std::vector<ShareEntry> entries{sealedEntry(item, entryKey)};
    std::vector<IndexItem> below;
    if (item.isFolder)
        for (auto& found : index_->descendants(item.id))
            if (!found.item.deletedAt)
                below.push_back(std::move(found.item));
    std::map<std::string, std::string> entryIds{{item.id, entries.front().entryId}};
    for (const auto& each : below) {
        entries.push_back(sealedEntry(each, entryKey));
        entryIds[each.id] = entries.back().entryId;
    }
    for (std::size_t i = 0; i < below.size(); ++i)
        entries[i + 1].parentEntryId = entryIds.at(below[i].parentId.value_or(item.id));
    return entries;
}

asio::awaitable<ShareService::Created> ShareService::create(IndexItem item,
                                                            std::optional<SecretText> password,
                                                            std::optional<KRJSON::Date> expiresAt) {
    if (!item.parentId)
        throw ShareError(Kind::wholeAccount);
    const auto key = KRCrypto::LinkKey::generate();
    CreateShareRequest request;
    request.entityType = item.isFolder ? "folder" : "file";
    request.entityId = item.id;
    request.expiresAt = expiresAt;
    if (password)
        request.passwordSalt = KRCrypto::randomBytes(KRCrypto::saltSize);
    auto rest = co_await offload([&] {
        const auto text = password ? std::optional(password->text()) : std::nullopt;
        const auto salt =
            request.passwordSalt ? std::optional(KRCrypto::ByteView(*request.passwordSalt)) : std::nullopt;
        return sealedEntries(item, key.entryKey(text, salt, KRCrypto::Argon2Params()));
    });
    request.entries = takeBatch(rest);
    auto share = co_await api_->createShare(std::move(request));
    std::exception_ptr failure;
    try {
        co_await complete(share, key, std::move(rest));
        auto link = linkOf(share, key);
        co_return Created{std::move(share), std::move(link)};
    } catch (...) {
        failure = std::current_exception();
    }
    try {
        co_await revoke(share.id);
    } catch (const std::exception& error) {
        Log::warning("sharing", std::string("an incomplete share stays at the service: ") + error.what());
    }
    std::rethrow_exception(failure);
}

asio::awaitable<void> ShareService::complete(const Share& share, const KRCrypto::LinkKey& key,
                                             std::vector<ShareEntry> rest) {
    index_->saveShareKey(
        share.id, share.entityId,
        KRCrypto::seal(masterKey_.bytes(), key.bytes(), KRCrypto::CryptoContext::localShareKey));
    while (!rest.empty())
        co_await api_->updateShareEntries(share.id, takeBatch(rest), {});
}

SecretText ShareService::linkOf(const Share& share, const KRCrypto::LinkKey& key) const {
    const auto fragment = key.fragment();
    const auto url = configuration_.shareURL(share.token.value_or(""), fragment.text());
    if (!url)
        throw APIError(APIError::Decoding{"Share: token is missing"});
    return std::string_view(url->buffer());
}

bool ShareService::opens(const LocalIndex::Bytes& sealed) const {
    try {
        static_cast<void>(
            KRCrypto::openSecret(masterKey_.bytes(), sealed, KRCrypto::CryptoContext::localShareKey));
        return true;
    } catch (const KRCrypto::KRCryptoError& error) {
        Log::warning("sharing", std::string("a share's stored key does not open: ") + error.what());
        return false;
    }
}

asio::awaitable<std::vector<ShareService::Listed>> ShareService::list() {
    auto shares = co_await api_->shares();
    std::map<std::string, LocalIndex::Bytes> sealedKeys;
    for (auto& key : index_->shareKeys())
        sealedKeys[key.shareId] = std::move(key.sealed);
    std::vector<Listed> listed;
    for (auto& share : shares) {
        Listed each{std::move(share), std::nullopt};
        each.item = index_->item(each.share.entityId);
        if (const auto sealed = sealedKeys.find(each.share.id); sealed != sealedKeys.end())
            each.hasKey = opens(sealed->second);
        listed.push_back(std::move(each));
    }
    co_return listed;
}

asio::awaitable<void> ShareService::revoke(std::string id) {
    try {
        co_await api_->revokeShare(id);
    } catch (const APIError& error) {
        if (!error.is<APIError::NotFound>())
            throw;
        index_->removeShareKey(id); // of one that was revoked elsewhere
        throw ShareError(Kind::unknown);
    }
    index_->removeShareKey(id);
}

} // namespace Korvane
