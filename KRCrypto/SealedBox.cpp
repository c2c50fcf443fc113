#include "KRCrypto/SealedBox.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/internal/AesGcm.hpp"
#include "KRCrypto/internal/SystemRandom.hpp"

namespace KRCrypto {

namespace {

using Internal::AesGcm;

constexpr std::size_t nonceAt = 1;
constexpr std::size_t ciphertextAt = nonceAt + gcmIVSize;

struct Parts {
    Internal::Nonce nonce;
    ByteView ciphertext;
    std::span<const std::uint8_t, gcmTagSize> tag;
};

// The version comes before the length, so that a box of a later version says so however short it is.
Parts partsOf(ByteView sealed) {
    if (sealed.empty()) {
        throw KRCryptoError(KRCryptoError::MalformedSealed{});
    }
    if (sealed.front() != keyVersion) {
        throw KRCryptoError(KRCryptoError::UnsupportedVersion{sealed.front()});
    }
    if (sealed.size() < sealedOverhead) {
        throw KRCryptoError(KRCryptoError::MalformedSealed{});
    }
    return {sealed.subspan<nonceAt, gcmIVSize>(),
            sealed.subspan(ciphertextAt, sealed.size() - sealedOverhead), sealed.last<gcmTagSize>()};
}

MutableBytes fitting(MutableBytes out, std::size_t size) {
    if (out.size() < size) {
        throw KRCryptoError(KRCryptoError::SizeMismatch{});
    }
    return out.first(size);
}

ByteView sealWith(AesGcm& cipher, ByteView plaintext, std::string_view aad, MutableBytes out) {
    const MutableBytes box = fitting(out, plaintext.size() + sealedOverhead);
    const auto nonce = box.subspan<nonceAt, gcmIVSize>();
    box[0] = keyVersion;
    Internal::fillNonce(nonce);
    cipher.seal(nonce, asBytes(aad), plaintext, box.subspan(ciphertextAt).data(), box.last<gcmTagSize>());
    return box;
}

ByteView openWith(AesGcm& cipher, const Parts& parts, std::string_view aad, MutableBytes out) {
    const MutableBytes plaintext = fitting(out, parts.ciphertext.size());
    cipher.open(parts.nonce, asBytes(aad), parts.ciphertext, parts.tag, plaintext);
    return plaintext;
}

} // namespace

Bytes seal(ByteView key, ByteView plaintext, std::string_view aad) {
    AesGcm cipher(key);
    Bytes box(plaintext.size() + sealedOverhead);
    sealWith(cipher, plaintext, aad, box);
    return box;
}

Bytes open(ByteView key, ByteView sealed, std::string_view aad) {
    const Parts parts = partsOf(sealed);
    AesGcm cipher(key);
    Bytes plaintext(parts.ciphertext.size());
    openWith(cipher, parts, aad, plaintext);
    return plaintext;
}

SecretBytes openSecret(ByteView key, ByteView sealed, std::string_view aad) {
    const Parts parts = partsOf(sealed);
    AesGcm cipher(key);
    SecretBytes plaintext(parts.ciphertext.size());
    openWith(cipher, parts, aad, plaintext.bytes());
    return plaintext;
}

ByteView sealInto(ByteView key, ByteView plaintext, std::string_view aad, MutableBytes out) {
    AesGcm cipher(key);
    return sealWith(cipher, plaintext, aad, out);
}

ByteView openInto(ByteView key, ByteView sealed, std::string_view aad, MutableBytes out) {
    const Parts parts = partsOf(sealed);
    AesGcm cipher(key);
    return openWith(cipher, parts, aad, out);
}

SealingKey::SealingKey(ByteView key) : cipher_(std::make_unique<AesGcm>(key)) {
    cipher_->expandKey();
}

SealingKey::SealingKey(SealingKey&&) noexcept = default;
SealingKey& SealingKey::operator=(SealingKey&&) noexcept = default;
SealingKey::~SealingKey() = default;

Bytes SealingKey::seal(ByteView plaintext, std::string_view aad) {
    Bytes box(plaintext.size() + sealedOverhead);
    sealWith(*cipher_, plaintext, aad, box);
    return box;
}

Bytes SealingKey::open(ByteView sealed, std::string_view aad) {
    const Parts parts = partsOf(sealed);
    Bytes plaintext(parts.ciphertext.size());
    openWith(*cipher_, parts, aad, plaintext);
    return plaintext;
}

ByteView SealingKey::sealInto(ByteView plaintext, std::string_view aad, MutableBytes out) {
    return sealWith(*cipher_, plaintext, aad, out);
}

ByteView SealingKey::openInto(ByteView sealed, std::string_view aad, MutableBytes out) {
    return openWith(*cipher_, partsOf(sealed), aad, out);
}

} // namespace KRCrypto
