#include "KRCrypto/internal/KeyAgreement.hpp"

#include "KRCrypto/Derivation.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/PairingKeyPair.hpp"
#include "KRCrypto/Sizes.hpp"

#include <algorithm>
#include <array>

namespace KRCrypto::Internal {

SecretBytes agreedKey(ByteView myPriv, ByteView theirPub, std::string_view label, ByteView firstPub,
                      ByteView secondPub) {
    const SecretBytes shared = sharedSecret(myPriv, theirPub);
    if (firstPub.size() != keySize || secondPub.size() != keySize) {
        throw KRCryptoError(KRCryptoError::InvalidPublicKey{});
    }
    std::array<std::uint8_t, 2 * keySize> salt{};
    std::ranges::copy(firstPub, salt.begin());
    std::ranges::copy(secondPub, salt.begin() + keySize);
    return hkdf(shared, label, keySize, salt);
}

} // namespace KRCrypto::Internal
