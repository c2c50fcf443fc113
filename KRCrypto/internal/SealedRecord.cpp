#include "KRCrypto/internal/SealedRecord.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "KRCrypto/internal/JsonText.hpp"

namespace KRCrypto::Internal {

Bytes sealRecord(ByteView key, ByteView json, std::string_view aad) {
    if (json.size() > mostRecordBytes) {
        throw KRCryptoError(KRCryptoError::SizeMismatch{});
    }
    return seal(key, json, aad);
}

SecretBytes openRecord(ByteView key, ByteView sealed, std::string_view aad) {
    if (sealed.size() > mostRecordBytes + sealedOverhead) {
        throw KRCryptoError(KRCryptoError::InvalidMeta{});
    }
    return openSecret(key, sealed, aad);
}

} // namespace KRCrypto::Internal
