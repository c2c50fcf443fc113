#include "KRCrypto/DropCrypto.hpp"

#include "KRCrypto/B64.hpp"
#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/Derivation.hpp"
#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/MetaJSON.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "KRCrypto/internal/JsonText.hpp"
#include "KRCrypto/internal/KeyAgreement.hpp"
#include "KRCrypto/internal/KeySize.hpp"
#include "KRCrypto/internal/SealedRecord.hpp"

#include <algorithm>

namespace KRCrypto::DropCrypto {

namespace {

using Internal::appendQuoted;

constexpr std::int64_t linkVersion = 1;
constexpr std::size_t fingerprintBytes = 16;
constexpr std::size_t fingerprintGroup = 4;

void requirePublicKeySize(ByteView publicKey) {
    if (publicKey.size() != keySize) {
        throw KRCryptoError(KRCryptoError::InvalidPublicKey{});
    }
}

struct WipedText {
    std::string text;

    WipedText() = default;

    ~WipedText() { wipe(text); }

    WipedText(const WipedText&) = delete;
    WipedText& operator=(const WipedText&) = delete;
};

// The record holds a token, so its text never moves while it is written, and is wiped.
SecretBytes encodeLink(const LinkSecret& link) {
    constexpr std::size_t mostOther = 80; // braces, keys, version
    WipedText wiped;
    std::string& json = wiped.text;
    json.reserve(mostOther + Internal::mostQuoted(link.token.size()) +
                 Internal::mostQuoted(link.label.size()) + Internal::mostQuoted(link.folderId.size()));
    json.append("{\"v\":").append(std::to_string(link.v)).append(",\"token\":");
    appendQuoted(json, link.token.text());
    json += ",\"label\":";
    appendQuoted(json, link.label);
    json += ",\"folderId\":";
    appendQuoted(json, link.folderId);
    json += '}';
    return SecretBytes::copyOf(json);
}

} // namespace

bool isReceivedBlob(std::string_view id) noexcept {
    return id.starts_with(blobPrefix);
}

Bytes sealLink(const MasterKey& mk, const LinkSecret& link) {
    return Internal::sealRecord(mk.bytes(), encodeLink(link), CryptoContext::dropLink);
}

LinkSecret openLink(const MasterKey& mk, ByteView sealed) {
    const Internal::JsonRecord record(Internal::openRecord(mk.bytes(), sealed, CryptoContext::dropLink));
    if (record.integer("v") != linkVersion) {
        throw KRCryptoError(KRCryptoError::InvalidMeta{});
    }
    return {.v = linkVersion,
            .token = record.secretText("token"),
            .label = record.text("label"),
            .folderId = record.text("folderId")};
}

Bytes wrapPrivateKey(const MasterKey& mk, ByteView privateKey) {
    Internal::requireKeySize(privateKey);
    return seal(mk.bytes(), privateKey, CryptoContext::dropPrivate);
}

PairingKeyPair openKeyPair(const MasterKey& mk, ByteView wrappedPrivateKey, ByteView publicKey) {
    PairingKeyPair pair = PairingKeyPair::fromPrivateKeyBytes(
        openSecret(mk.bytes(), wrappedPrivateKey, CryptoContext::dropPrivate));
    if (!std::ranges::equal(pair.publicKey(), publicKey)) {
        throw KRCryptoError(KRCryptoError::InvalidPublicKey{});
    }
    return pair;
}

SecretBytes dropKey(ByteView myPriv, ByteView theirPub, ByteView ephemeralPub, ByteView ownerPub) {
    return Internal::agreedKey(myPriv, theirPub, CryptoContext::dropKey, ephemeralPub, ownerPub);
}

OpenedItem openItem(const PairingKeyPair& owner, ByteView ephemeralPublicKey, ByteView wrappedKey,
                    ByteView metaEnc) {
    const SecretBytes key =
        dropKey(owner.privateKey(), ephemeralPublicKey, ephemeralPublicKey, owner.publicKey());
    SecretBytes fileKey = openFileKey(key, wrappedKey, CryptoContext::dropWrap);
    const EntryMeta meta = MetaJSON::decodeValid(Internal::openRecord(key, metaEnc, CryptoContext::dropMeta));
    if (meta.file() == nullptr) {
        throw KRCryptoError(KRCryptoError::InvalidMeta{});
    }
    return {.fileKey = std::move(fileKey), .meta = sanitizeMeta(*meta.file())};
}

std::string fingerprint(ByteView publicKey) {
    requirePublicKeySize(publicKey);
    Sha256 hasher;
    hasher.update(asBytes(CryptoContext::dropFingerprint));
    hasher.update(publicKey);
    const std::string digits = hexString(ByteView(hasher.digest()).first(fingerprintBytes));
    std::string groups = digits.substr(0, fingerprintGroup);
    for (std::size_t at = fingerprintGroup; at < digits.size(); at += fingerprintGroup) {
        groups.append(" ").append(digits, at, fingerprintGroup);
    }
    return groups;
}

std::string fragment(ByteView publicKey, std::string_view label) {
    requirePublicKeySize(publicKey);
    std::string text = B64::encodeURL(publicKey);
    const std::string shown = sanitizeLabel(label);
    if (!shown.empty()) {
        text.append(".").append(B64::encodeURL(asBytes(shown)));
    }
    return text;
}

SecretBytes derivePasswordKey(std::string_view password, ByteView salt, const Argon2Params& params) {
    return subkey(argon2idUntrusted(password, salt, params), CryptoContext::dropPassword);
}

} // namespace KRCrypto::DropCrypto
