#pragma once

#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/api/records/Device.hpp"
#include "KorvaneCore/api/records/Platform.hpp"
#include "KorvaneCore/api/records/SSOProvider.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/json/SecretText.hpp"

#include <boost/describe.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

struct User {
    std::string id;
    std::string email;
    std::string rootFolderId;
    std::optional<std::int64_t> quotaBytes;
    std::optional<KRJSON::Date> createdAt;
    std::optional<bool> hasPassword;
    std::optional<std::vector<std::string>> identities;

    bool operator==(const User&) const = default;
};
BOOST_DESCRIBE_STRUCT(User, (), (id, email, rootFolderId, quotaBytes, createdAt, hasPassword, identities))

/// How an account's password is derived. Unchecked: whoever derives checks the bounds first.
struct AuthParams {
    struct Argon2 {
        std::int64_t memoryKib = 0;
        std::int64_t iterations = 0;
        std::int64_t parallelism = 0;
        std::int64_t outputLength = 0; ///< bytes

        bool operator==(const Argon2&) const = default;
        BOOST_DESCRIBE_CLASS(Argon2, (), (memoryKib, iterations, parallelism, outputLength), (), ())
    };

    KRCrypto::Bytes kdfSalt;
    Argon2 argon2;
    std::optional<std::string> signupMode;
    std::optional<bool> signupAvailable;

    bool operator==(const AuthParams&) const = default;
};
BOOST_DESCRIBE_STRUCT(AuthParams, (), (kdfSalt, argon2, signupMode, signupAvailable))

/// Whether new accounts can be made. Never crosses the wire.
struct SignUpAvailability {
    enum class Mode { open, invite, closed };
    BOOST_DESCRIBE_NESTED_ENUM(Mode, open, invite, closed)

    Mode mode = Mode::closed;
    bool available = false;

    bool operator==(const SignUpAvailability&) const = default;
};

struct SignupRequest {
    std::string email;
    KRCrypto::SecretBytes authKey;
    KRCrypto::Bytes kdfSalt;
    KRCrypto::Bytes wrappedMasterKey;
    KRCrypto::Bytes wrappedMasterKeyRecovery;
    KRCrypto::SecretBytes recoveryAuthKey;
    std::string deviceName;
    Platform platform = Platform::macos;
    std::optional<std::string> inviteCode;

    bool operator==(const SignupRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(SignupRequest, (),
                      (email, authKey, kdfSalt, wrappedMasterKey, wrappedMasterKeyRecovery, recoveryAuthKey,
                       deviceName, platform, inviteCode))

struct LoginRequest {
    std::string email;
    KRCrypto::SecretBytes authKey;
    std::string deviceName;
    Platform platform = Platform::macos;
    std::optional<std::string> deviceId;

    bool operator==(const LoginRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(LoginRequest, (), (email, authKey, deviceName, platform, deviceId))

struct AuthResponse {
    User user;
    Device device;
    SecretText accessToken;
    SecretText refreshToken;
    std::optional<KRCrypto::Bytes> wrappedMasterKey;
    std::optional<std::string> keyDelivery;

    bool operator==(const AuthResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(AuthResponse, (),
                      (user, device, accessToken, refreshToken, wrappedMasterKey, keyDelivery))

struct MeResponse {
    User user;
    Device device;

    bool operator==(const MeResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(MeResponse, (), (user, device))

struct RecoveryBeginRequest {
    std::string email;

    bool operator==(const RecoveryBeginRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(RecoveryBeginRequest, (), (email))

struct RecoveryBeginResponse {
    KRCrypto::Bytes kdfSalt;
    KRCrypto::Bytes wrappedMasterKeyRecovery;

    bool operator==(const RecoveryBeginResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(RecoveryBeginResponse, (), (kdfSalt, wrappedMasterKeyRecovery))

struct RecoveryCompleteRequest {
    std::string email;
    KRCrypto::SecretBytes recoveryAuthKey;
    KRCrypto::SecretBytes newAuthKey;
    KRCrypto::Bytes newKdfSalt;
    KRCrypto::Bytes newWrappedMasterKey;
    std::string deviceName;
    Platform platform = Platform::macos;

    bool operator==(const RecoveryCompleteRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(RecoveryCompleteRequest, (),
                      (email, recoveryAuthKey, newAuthKey, newKdfSalt, newWrappedMasterKey, deviceName,
                       platform))

struct ChangePasswordRequest {
    KRCrypto::SecretBytes currentAuthKey;
    KRCrypto::SecretBytes newAuthKey;
    KRCrypto::Bytes newKdfSalt;
    KRCrypto::Bytes newWrappedMasterKey;

    bool operator==(const ChangePasswordRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(ChangePasswordRequest, (),
                      (currentAuthKey, newAuthKey, newKdfSalt, newWrappedMasterKey))

/// Proof of who asks: of the password, or a fresh single sign-on.
struct DeleteAccountRequest {
    std::optional<KRCrypto::SecretBytes> authKey;
    std::optional<SSOProvider> provider;
    std::optional<SecretText> idToken;
    std::optional<std::string> nonce;

    bool operator==(const DeleteAccountRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(DeleteAccountRequest, (), (authKey, provider, idToken, nonce))

struct RotateRecoveryRequest {
    std::optional<KRCrypto::SecretBytes> authKey;
    std::optional<SSOProvider> provider;
    std::optional<SecretText> idToken;
    std::optional<std::string> nonce;
    KRCrypto::Bytes newWrappedMasterKeyRecovery;
    KRCrypto::SecretBytes newRecoveryAuthKey;

    bool operator==(const RotateRecoveryRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(RotateRecoveryRequest, (),
                      (authKey, provider, idToken, nonce, newWrappedMasterKeyRecovery, newRecoveryAuthKey))

struct RecoveryWrappedKeyResponse {
    KRCrypto::Bytes wrappedMasterKeyRecovery;

    bool operator==(const RecoveryWrappedKeyResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(RecoveryWrappedKeyResponse, (), (wrappedMasterKeyRecovery))

struct Usage {
    std::int64_t usedBytes = 0;
    std::int64_t quotaBytes = 0;
    std::optional<std::int64_t> fileCount;
    std::optional<std::int64_t> folderCount;
    std::optional<std::int64_t> trashBytes;
    std::optional<std::int64_t> versionBytes;

    bool operator==(const Usage&) const = default;
};
BOOST_DESCRIBE_STRUCT(Usage, (), (usedBytes, quotaBytes, fileCount, folderCount, trashBytes, versionBytes))

} // namespace Korvane
