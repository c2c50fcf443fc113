#pragma once

#include "KRCrypto/Argon2.hpp"
#include "KRCrypto/SecretBytes.hpp"

#include <string_view>

namespace KRCrypto {

// From the account password: the key that wraps the master key, and the one the server checks instead of the
// password.
struct PasswordKeys {
    SecretBytes kek;
    SecretBytes authKey;

    bool operator==(const PasswordKeys&) const = default;
};

// From the recovery secret: the key that wraps the master key, and the one that proves knowledge to the
// server.
struct RecoveryKeys {
    SecretBytes rk;
    SecretBytes rkAuth;

    bool operator==(const RecoveryKeys&) const = default;
};

// The password's bytes are used as given, without normalisation. Takes the memory and time of `params`, which
// are checked with requireSafeServerParams when they come from the server. Throws Argon2.
PasswordKeys deriveFromPassword(std::string_view password, ByteView kdfSalt, const Argon2Params& params);

RecoveryKeys deriveRecoveryKeys(ByteView recoverySecret);

} // namespace KRCrypto
