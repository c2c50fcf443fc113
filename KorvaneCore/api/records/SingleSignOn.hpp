#pragma once

#include "KorvaneCore/api/records/Account.hpp"

#include <boost/describe.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

/// The providers the service accepts; an absent one is not offered.
struct SSOConfig {
    struct Apple {
        std::string clientId;

        bool operator==(const Apple&) const = default;
        BOOST_DESCRIBE_CLASS(Apple, (), (clientId), (), ())
    };

    struct Google {
        std::string clientId;
        std::string iosClientId;

        bool operator==(const Google&) const = default;
        BOOST_DESCRIBE_CLASS(Google, (), (clientId, iosClientId), (), ())
    };

    std::optional<Apple> apple;
    std::optional<Google> google;

    bool operator==(const SSOConfig&) const = default;
};
BOOST_DESCRIBE_STRUCT(SSOConfig, (), (apple, google))

struct SSOLoginRequest {
    SSOProvider provider = SSOProvider::google;
    SecretText idToken;
    std::string nonce;
    std::string deviceName;
    Platform platform = Platform::macos;
    std::optional<std::string> deviceId;

    bool operator==(const SSOLoginRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(SSOLoginRequest, (), (provider, idToken, nonce, deviceName, platform, deviceId))

struct SSOSignupRequest {
    SSOProvider provider = SSOProvider::google;
    SecretText idToken;
    std::string nonce;
    KRCrypto::Bytes wrappedMasterKeyRecovery;
    KRCrypto::SecretBytes recoveryAuthKey;
    std::string deviceName;
    Platform platform = Platform::macos;
    std::optional<std::string> inviteCode;

    bool operator==(const SSOSignupRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(SSOSignupRequest, (),
                      (provider, idToken, nonce, wrappedMasterKeyRecovery, recoveryAuthKey, deviceName,
                       platform, inviteCode))

struct LinkIdentityRequest {
    SSOProvider provider = SSOProvider::google;
    SecretText idToken;
    std::string nonce;
    DeleteAccountRequest proof;

    bool operator==(const LinkIdentityRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(LinkIdentityRequest, (), (provider, idToken, nonce, proof))

struct IdentitiesResponse {
    std::vector<std::string> identities;

    bool operator==(const IdentitiesResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(IdentitiesResponse, (), (identities))

} // namespace Korvane
