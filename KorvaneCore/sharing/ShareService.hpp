#pragma once

#include "KRCrypto/LinkKey.hpp"
#include "KRCrypto/MasterKey.hpp"
#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/config/KRConfiguration.hpp"
#include "KorvaneCore/json/SecretText.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

/// The shares of the signed-in account. A share shows a file, or a folder with all in it, as it is when the
/// share is made, to whoever has its link. The key is in the link, which is told once, when it is made, and
/// kept here sealed under the master key.
///
/// Operations are coroutines on the caller's executor. They throw ShareError, APIError, KRCryptoError and
/// SQLiteError. The index is the account's, brought up to date by the caller.
class ShareService {
public:
    ShareService(std::shared_ptr<APIClient> api, std::shared_ptr<LocalIndex> index,
                 KRCrypto::MasterKey masterKey, KRConfiguration configuration);

    struct Created {
        Share share;
        SecretText link;
    };

    /// With a password, which is not empty, the link alone opens nothing. A share that could not be completed
    /// is revoked again.
    asio::awaitable<Created> create(IndexItem item, std::optional<SecretText> password,
                                    std::optional<KRJSON::Date> expiresAt);

    struct Listed {
        Share share;
        std::optional<IndexItem> item; ///< what is shared, when the index knows it
        bool hasKey = false;           ///< its link's key is kept here, where the link was made
    };

    asio::awaitable<std::vector<Listed>> list();

    asio::awaitable<void> revoke(std::string id);

private:
    [[nodiscard]] std::vector<ShareEntry> sealedEntries(const IndexItem& item,
                                                        const KRCrypto::SecretBytes& entryKey) const;
    [[nodiscard]] ShareEntry sealedEntry(const IndexItem& item, const KRCrypto::SecretBytes& entryKey) const;
    asio::awaitable<void> complete(const Share& share, const KRCrypto::LinkKey& key,
                                   std::vector<ShareEntry> rest);
    [[nodiscard]] bool opens(const LocalIndex::Bytes& sealed) const;
    [[nodiscard]] SecretText linkOf(const Share& share, const KRCrypto::LinkKey& key) const;

    const std::shared_ptr<APIClient> api_;
    const std::shared_ptr<LocalIndex> index_;
    const KRCrypto::MasterKey masterKey_;
    const KRConfiguration configuration_;
};

} // namespace Korvane
