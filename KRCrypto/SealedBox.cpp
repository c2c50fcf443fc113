#include "KRCrypto/SealedBox.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/internal/AesGcm.hpp"
#include "KRCrypto/internal/KeySize.hpp"
#include "KRCrypto/internal/SystemRandom.hpp"

namespace KRCrypto {

namespace {

using Internal::AesGcm;

constexpr std::size_t nonceAt = 1;
constexpr std::size_t ciphertextAt = nonceAt + gcmIVSize;

struct Parts {
    Internal::Nonce nonce;
    ByteView ciphertext;
    Internal::ConstTag tag;
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

// A box in the making: version and nonce are written.
struct Blank {
    MutableBytes box;
    Internal::Nonce nonce;
    std::uint8_t* ciphertext;
    Internal::Tag tag;
};

Blank blankIn(MutableBytes out, std::size_t plaintextSize) {
    const MutableBytes box = fitting(out, plaintextSize + sealedOverhead);
    const auto nonce = box.subspan<nonceAt, gcmIVSize>();
    box[0] = keyVersion;
    Internal::fillNonce(nonce);
    return {box, nonce, box.subspan(ciphertextAt).data(), box.last<gcmTagSize>()};
}

void openParts(ByteView key, const Parts& parts, std::string_view aad, MutableBytes plaintext) {
    AesGcm::openOnce(key, parts.nonce, asBytes(aad), parts.ciphertext, parts.tag, plaintext);
}

} // namespace

Bytes seal(ByteView key, ByteView plaintext, std::string_view aad) {
    Internal::requireKeySize(key);
    Bytes box(plaintext.size() + sealedOverhead);
    sealInto(key, plaintext, aad, box);
    return box;
}

Bytes open(ByteView key, ByteView sealed, std::string_view aad) {
    const Parts parts = partsOf(sealed);
    Internal::requireKeySize(key);
    Bytes plaintext(parts.ciphertext.size());
    openParts(key, parts, aad, plaintext);
    return plaintext;
}

SecretBytes openSecret(ByteView key, ByteView sealed, std::string_view aad) {
    const Parts parts = partsOf(sealed);
    Internal::requireKeySize(key);
    SecretBytes plaintext(parts.ciphertext.size());
    openParts(key, parts, aad, plaintext.bytes());
    return plaintext;
}

ByteView sealInto(ByteView key, ByteView plaintext, std::string_view aad, MutableBytes out) {
    Internal::requireKeySize(key);
    const Blank blank = blankIn(out, plaintext.size());
    AesGcm::sealOnce(key, blank.nonce, asBytes(aad), plaintext, blank.ciphertext, blank.tag);
    return blank.box;
}

ByteView openInto(ByteView key, ByteView sealed, std::string_view aad, MutableBytes out) {
    const Parts parts = partsOf(sealed);
    Internal::requireKeySize(key);
    const MutableBytes plaintext = fitting(out, parts.ciphertext.size());
    openParts(key, parts, aad, plaintext);
    return plaintext;
}

SealingKey::SealingKey(ByteView key) : cipher_(std::make_unique<AesGcm>(key)) {}

SealingKey::SealingKey(SealingKey&&) noexcept = default;
SealingKey& SealingKey::operator=(SealingKey&&) noexcept = default;
SealingKey::~SealingKey() = default;

Bytes SealingKey::seal(ByteView plaintext, std::string_view aad) {
    Bytes box(plaintext.size() + sealedOverhead);
    sealInto(plaintext, aad, box);
    return box;
}

Bytes SealingKey::open(ByteView sealed, std::string_view aad) {
    const Parts parts = partsOf(sealed);
    Bytes plaintext(parts.ciphertext.size());
    cipher_->open(parts.nonce, asBytes(aad), parts.ciphertext, parts.tag, plaintext);
    return plaintext;
}

ByteView SealingKey::sealInto(ByteView plaintext, std::string_view aad, MutableBytes out) {
    const Blank blank = blankIn(out, plaintext.size());
    cipher_->seal(blank.nonce, asBytes(aad), plaintext, blank.ciphertext, blank.tag);
    return blank.box;
}

ByteView SealingKey::openInto(ByteView sealed, std::string_view aad, MutableBytes out) {
    const Parts parts = partsOf(sealed);
    const MutableBytes plaintext = fitting(out, parts.ciphertext.size());
    cipher_->open(parts.nonce, asBytes(aad), parts.ciphertext, parts.tag, plaintext);
    return plaintext;
}

} // namespace KRCrypto
