#pragma once

#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/jobs/JobContext.hpp"

#include <optional>
#include <string>

namespace Korvane {

struct KnownKey {
    KRCrypto::Bytes wrapped;
    KRCrypto::SecretBytes key;
};

/// The key of a blob the service has already: from its answer, the local index, the Trash, or the versions of
/// the file to update, if any, in this order. One that does not open under the master key does not count.
/// Throws TransferQueue::PermanentFailure when there is none. All outlive the coroutine.
asio::awaitable<KnownKey> knownKey(const JobContext& context, const KRCrypto::MasterKey& masterKey,
                                   const std::string& blobId, const std::optional<std::string>& fileId,
                                   const std::optional<KRCrypto::Bytes>& answered);

} // namespace Korvane
