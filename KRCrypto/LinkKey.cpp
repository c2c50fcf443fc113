#include "KRCrypto/LinkKey.hpp"

#include "KRCrypto/B64.hpp"
#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/Derivation.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/MasterKey.hpp"
#include "KRCrypto/MetaJSON.hpp"
#include "KRCrypto/Random.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "KRCrypto/internal/KeySize.hpp"
#include "KRCrypto/internal/SealedRecord.hpp"

#include <utility>

namespace KRCrypto {

namespace {

SecretBytes decodedFragment(std::string_view fragment) {
    try {
        SecretBytes bytes = B64::decodeSecretURL(fragment);
        if (bytes.size() == keySize) {
            return bytes;
        }
    } catch (const KRCryptoError&) { // NOLINT(bugprone-empty-catch): refused below, like a wrong length
    }
    throw KRCryptoError(KRCryptoError::InvalidFragment{});
}

} // namespace

LinkKey::LinkKey(SecretBytes bytes) : bytes_(std::move(bytes)) {}

LinkKey LinkKey::generate() {
    return LinkKey(randomSecret(keySize));
}

LinkKey LinkKey::fromFragment(std::string_view fragment) {
    return LinkKey(decodedFragment(fragment));
}

LinkKey LinkKey::fromBytes(ByteView bytes) {
    Internal::requireKeySize(bytes);
    return LinkKey(SecretBytes::copyOf(bytes));
}

SecretBytes LinkKey::fragment() const {
    return B64::encodeSecretURL(bytes_);
}

SecretBytes LinkKey::entryKey(std::optional<std::string_view> password, std::optional<ByteView> passwordSalt,
                              const Argon2Params& params) const {
    if (!password && !passwordSalt) {
        return bytes_;
    }
    if (!password || !passwordSalt || password->empty() || passwordSalt->empty()) {
        throw KRCryptoError(KRCryptoError::InvalidPassword{});
    }
    const SecretBytes salt = argon2idUntrusted(*password, *passwordSalt, params);
    return hkdf(bytes_, CryptoContext::linkPassword, keySize, salt);
}

Bytes wrapLinkKey(ByteView entryKey, ByteView fk) {
    Internal::requireKeySize(fk);
    return seal(entryKey, fk, CryptoContext::linkWrap);
}

SecretBytes unwrapLinkKey(ByteView entryKey, ByteView wrapped) {
    return openFileKey(entryKey, wrapped, CryptoContext::linkWrap);
}

Bytes sealLinkMeta(ByteView entryKey, const EntryMeta& meta) {
    return Internal::sealRecord(entryKey, MetaJSON::encode(meta), CryptoContext::linkMeta);
}

EntryMeta openLinkMeta(ByteView entryKey, ByteView sealed) {
    return MetaJSON::decodeValid(Internal::openRecord(entryKey, sealed, CryptoContext::linkMeta));
}

} // namespace KRCrypto
