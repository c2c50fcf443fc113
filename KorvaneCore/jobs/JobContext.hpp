#pragma once

#include "KRCrypto/MasterKey.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/api/BlobTransport.hpp"
#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Korvane {

/// What upload and download jobs work with. Key and device name are asked for at run time, so that those of
/// the account signed in then are used; the accessors may throw, as APIError (NotSignedIn) for example.
struct JobContext {
    std::shared_ptr<APIClient> api;
    std::shared_ptr<LocalIndex> index;
    std::shared_ptr<BlobTransport> transport;
    std::function<asio::awaitable<std::shared_ptr<const KRCrypto::MasterKey>>()> masterKey;
    std::function<asio::awaitable<std::string>()> deviceName;
    std::shared_ptr<Clock> clock = systemClock();
    std::int64_t chunkSize = KRCrypto::effectiveChunkSize(); ///< plaintext bytes; another one is for tests
};

} // namespace Korvane
