#pragma once

#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/sync/JobContext.hpp"
#include "KorvaneCore/sync/UploadJob.hpp"

#include <optional>

namespace Korvane {

struct KnownKey {
    KRCrypto::Bytes wrapped;
    KRCrypto::SecretBytes key;
};

/// The key of a blob the service has already: from its answer, the local index, the Trash, or the versions of
/// the file to update, in this order. One that does not open under the master key does not count. Throws
/// TransferQueue::PermanentFailure when there is none.
asio::awaitable<KnownKey> knownKey(const JobContext& context, const KRCrypto::MasterKey& masterKey,
                                   const UploadJob& job, const std::optional<KRCrypto::Bytes>& answered);

} // namespace Korvane
