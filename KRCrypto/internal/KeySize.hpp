#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Sizes.hpp"

namespace KRCrypto::Internal {

// Throws InvalidKeyLength unless the key has 32 bytes.
inline void requireKeySize(ByteView key) {
    if (key.size() != keySize) {
        throw KRCryptoError(KRCryptoError::InvalidKeyLength{key.size()});
    }
}

} // namespace KRCrypto::Internal
