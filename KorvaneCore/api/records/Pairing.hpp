#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KorvaneCore/api/records/Account.hpp"

#include <boost/describe.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

struct PairStartRequest {
    KRCrypto::Bytes devicePublicKey;
    std::string deviceName;
    Platform platform = Platform::macos;

    bool operator==(const PairStartRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(PairStartRequest, (), (devicePublicKey, deviceName, platform))

struct PairStartResponse {
    std::string pairingId;
    std::string code;
    SecretText pollSecret;
    std::optional<KRJSON::Date> expiresAt;

    bool operator==(const PairStartResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(PairStartResponse, (), (pairingId, code, pollSecret, expiresAt))

struct PairPollResponse {
    std::string status;
    std::optional<KRCrypto::Bytes> approverPublicKey;
    std::optional<KRCrypto::Bytes> encryptedMasterKey;
    std::optional<SecretText> accessToken;
    std::optional<SecretText> refreshToken;
    std::optional<Device> device;
    std::optional<User> user;

    bool operator==(const PairPollResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(PairPollResponse, (),
                      (status, approverPublicKey, encryptedMasterKey, accessToken, refreshToken, device,
                       user))

struct PendingPairing {
    std::string pairingId;
    std::string code;
    std::string deviceName;
    std::string platform;
    KRCrypto::Bytes devicePublicKey;
    std::optional<KRJSON::Date> createdAt;
    std::optional<bool> bound;

    bool operator==(const PendingPairing&) const = default;
};
BOOST_DESCRIBE_STRUCT(PendingPairing, (),
                      (pairingId, code, deviceName, platform, devicePublicKey, createdAt, bound))

struct PendingPairingsResponse {
    std::vector<PendingPairing> pairings;

    bool operator==(const PendingPairingsResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(PendingPairingsResponse, (), (pairings))

struct PairApproveRequest {
    std::string pairingId;
    std::string code;
    KRCrypto::Bytes approverPublicKey;
    KRCrypto::Bytes encryptedMasterKey;

    bool operator==(const PairApproveRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(PairApproveRequest, (), (pairingId, code, approverPublicKey, encryptedMasterKey))

} // namespace Korvane
