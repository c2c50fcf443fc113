#include "KRCrypto/AccountKeys.hpp"

#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/Derivation.hpp"

namespace KRCrypto {

PasswordKeys deriveFromPassword(std::string_view password, ByteView kdfSalt, const Argon2Params& params) {
    const SecretBytes raw = argon2id(password, kdfSalt, params);
    return {.kek = subkey(raw, CryptoContext::kek), .authKey = subkey(raw, CryptoContext::auth)};
}

RecoveryKeys deriveRecoveryKeys(ByteView recoverySecret) {
    return {.rk = subkey(recoverySecret, CryptoContext::rk),
            .rkAuth = subkey(recoverySecret, CryptoContext::rkAuth)};
}

} // namespace KRCrypto
