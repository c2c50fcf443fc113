#include "KRCrypto/MasterKey.hpp"

#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/Derivation.hpp"
#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/MetaJSON.hpp"
#include "KRCrypto/QuickSendJSON.hpp"
#include "KRCrypto/Random.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "KRCrypto/UnicodeText.hpp"
#include "KRCrypto/internal/KeySize.hpp"
#include "KRCrypto/internal/SealedRecord.hpp"

#include <utility>

namespace KRCrypto {

namespace {

SecretBytes ofKeySize(SecretBytes key) {
    Internal::requireKeySize(key);
    return key;
}

std::string appDataLabel(std::string_view name) {
    return std::string(CryptoContext::appDataItem).append(name);
}

} // namespace

MasterKey::MasterKey(SecretBytes bytes)
    : bytes_(ofKeySize(std::move(bytes))),
      blindKey_(subkey(bytes_, CryptoContext::blind)),
      dedupeKey_(subkey(bytes_, CryptoContext::dedupe)) {}

MasterKey MasterKey::generate() {
    return MasterKey(randomSecret(keySize));
}

MasterKey MasterKey::fromBytes(ByteView bytes) {
    return MasterKey(SecretBytes::copyOf(bytes));
}

SecretBytes MasterKey::appDataKey() const {
    return subkey(bytes_, CryptoContext::appData);
}

SecretBytes MasterKey::quickSendKey() const {
    return subkey(bytes_, CryptoContext::quickSend);
}

Bytes MasterKey::wrapWithKek(ByteView kek) const {
    return seal(kek, bytes_, CryptoContext::mkWrap);
}

Bytes MasterKey::wrapWithRecovery(ByteView rk) const {
    return seal(rk, bytes_, CryptoContext::mkRecoveryWrap);
}

MasterKey MasterKey::unwrapWithKek(ByteView kek, ByteView wrapped) {
    return MasterKey(openSecret(kek, wrapped, CryptoContext::mkWrap));
}

MasterKey MasterKey::unwrapWithRecovery(ByteView rk, ByteView wrapped) {
    return MasterKey(openSecret(rk, wrapped, CryptoContext::mkRecoveryWrap));
}

Bytes MasterKey::wrapFileKey(ByteView fk) const {
    Internal::requireKeySize(fk);
    return seal(bytes_, fk, CryptoContext::fkWrap);
}

SecretBytes MasterKey::unwrapFileKey(ByteView wrapped) const {
    return openFileKey(bytes_, wrapped, CryptoContext::fkWrap);
}

Bytes MasterKey::sealMeta(const EntryMeta& meta) const {
    return Internal::sealRecord(bytes_, MetaJSON::encode(meta), CryptoContext::meta);
}

EntryMeta MasterKey::openMeta(ByteView sealed) const {
    return MetaJSON::decodeValid(Internal::openRecord(bytes_, sealed, CryptoContext::meta));
}

std::string MasterKey::blindIndexInput(std::string_view name) {
    return toLower(toNFC(name));
}

std::string MasterKey::nameBlindIndex(std::string_view name) const {
    return hexString(hmacSHA256(blindKey_, asBytes(blindIndexInput(name))));
}

std::string MasterKey::blobId(ByteView plaintextSHA256) const {
    if (plaintextSHA256.size() != std::tuple_size_v<Digest>) {
        throw KRCryptoError(KRCryptoError::SizeMismatch{});
    }
    return hexString(hmacSHA256(dedupeKey_, plaintextSHA256));
}

Bytes MasterKey::sealAppData(std::string_view name, ByteView value) const {
    return seal(appDataKey(), value, appDataLabel(name));
}

Bytes MasterKey::openAppData(std::string_view name, ByteView sealed) const {
    return open(appDataKey(), sealed, appDataLabel(name));
}

Bytes MasterKey::sealQuickSend(const QuickSendPayload& payload) const {
    const Bytes json = QuickSendJSON::encode(payload);
    if (json.size() + sealedOverhead > quickSendMaxSealed) {
        throw KRCryptoError(KRCryptoError::QuickSendTooLarge{});
    }
    return seal(quickSendKey(), json, CryptoContext::quickSend);
}

QuickSendPayload MasterKey::openQuickSend(ByteView sealed) const {
    return QuickSendJSON::decode(Internal::openRecord(quickSendKey(), sealed, CryptoContext::quickSend));
}

SecretBytes openFileKey(ByteView key, ByteView wrapped, std::string_view label) {
    return ofKeySize(openSecret(key, wrapped, label));
}

} // namespace KRCrypto
