#pragma once

#include "KRCrypto/Sizes.hpp"
#include "KorvaneCore/api/records/Account.hpp"
#include "KorvaneCore/platform/Clock.hpp"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace Korvane {

/// What a service is started with.
struct ServiceSettings {
    /// Holds the database and the blobs; created (0700) when missing. One running service has it at a time.
    std::filesystem::path folder;

    std::uint16_t port = 8787; ///< on 127.0.0.1; 0 for any free one
    std::shared_ptr<Clock> clock = systemClock();

    std::chrono::seconds accessTokenLifetime{900};
    std::chrono::seconds storageURLLifetime{3600};
    std::chrono::seconds uploadLifetime{7 * 86400};
    std::chrono::seconds pairingLifetime{600};

    std::int64_t quotaBytes = std::int64_t{100} << 30;       ///< of new accounts
    std::int64_t chunkSize = KRCrypto::effectiveChunkSize(); ///< plaintext bytes in a full chunk

    SignUpAvailability::Mode signupMode = SignUpAvailability::Mode::open;
    std::string inviteCode;                     ///< asked for when sign-up is by invitation
    AuthParams::Argon2 argon2{65536, 3, 1, 32}; ///< told to clients

    int credentialAttemptsPerMinute = 30; ///< per e-mail address, and per account for pairing codes
    std::optional<int> requestsPerMinute; ///< per device; none for no limit
    std::chrono::milliseconds latency{0}; ///< added to every answer, as by a distant network
    bool tellsFileKeys = true;            ///< an upload that exists answers with its wrapped key
};

} // namespace Korvane
