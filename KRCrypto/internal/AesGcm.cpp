#include "KRCrypto/internal/AesGcm.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/SecretBytes.hpp"
#include "KRCrypto/internal/KeySize.hpp"

#include <algorithm>
#include <array>

namespace KRCrypto::Internal {

namespace {

// The library counts in int; 1 GiB is a multiple of the block size that fits.
constexpr std::size_t mostPerCall = std::size_t{1} << 30U;

} // namespace

AesGcm::AesGcm() : context_(owned(EVP_CIPHER_CTX_new())) {}

AesGcm::AesGcm(ByteView key) : AesGcm() {
    requireKeySize(key);
    require(EVP_EncryptInit_ex2(context_.get(), aes256Gcm(), key.data(), nullptr, nullptr) == 1);
}

void AesGcm::start(const EVP_CIPHER* algorithm, ByteView key, Nonce nonce, ByteView associated,
                   Direction direction) {
    require(EVP_CipherInit_ex2(context_.get(), algorithm, key.data(), nonce.data(), direction, nullptr) == 1);
    update(associated, nullptr);
}

// What has no output is associated data to the library. An empty text is not fed: its output may be null.
void AesGcm::update(ByteView in, std::uint8_t* out) {
    while (!in.empty()) {
        const std::size_t size = std::min(in.size(), mostPerCall);
        int written = 0;
        require(EVP_CipherUpdate(context_.get(), out, &written, in.data(), static_cast<int>(size)) == 1);
        in = in.subspan(size);
        out = out == nullptr ? nullptr : out + size;
    }
}

void AesGcm::finishSeal(Tag tag) {
    int written = 0;
    require(EVP_CipherFinal_ex(context_.get(), tag.data(), &written) == 1);
    require(EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_GET_TAG, gcmTagSize, tag.data()) == 1);
}

void AesGcm::finishOpen(ConstTag tag, MutableBytes out) {
    const ErrorQueueScope errors;
    std::array<std::uint8_t, gcmTagSize> expected{};
    std::ranges::copy(tag, expected.begin());
    require(EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_SET_TAG, gcmTagSize, expected.data()) == 1);
    int written = 0;
    if (EVP_CipherFinal_ex(context_.get(), expected.data(), &written) != 1) {
        wipe(out);
        throw KRCryptoError(KRCryptoError::AuthenticationFailed{});
    }
}

void AesGcm::seal(Nonce nonce, ByteView associated, ByteView plaintext, std::uint8_t* out, Tag tag) {
    start(nullptr, {}, nonce, associated, seals);
    update(plaintext, out);
    finishSeal(tag);
}

void AesGcm::open(Nonce nonce, ByteView associated, ByteView ciphertext, ConstTag tag, MutableBytes out) {
    start(nullptr, {}, nonce, associated, opens);
    update(ciphertext, out.data());
    finishOpen(tag, out);
}

void AesGcm::sealOnce(ByteView key, Nonce nonce, ByteView associated, ByteView plaintext, std::uint8_t* out,
                      Tag tag) {
    requireKeySize(key);
    AesGcm cipher;
    cipher.start(aes256Gcm(), key, nonce, associated, seals);
    cipher.update(plaintext, out);
    cipher.finishSeal(tag);
}

void AesGcm::openOnce(ByteView key, Nonce nonce, ByteView associated, ByteView ciphertext, ConstTag tag,
                      MutableBytes out) {
    requireKeySize(key);
    AesGcm cipher;
    cipher.start(aes256Gcm(), key, nonce, associated, opens);
    cipher.update(ciphertext, out.data());
    cipher.finishOpen(tag, out);
}

} // namespace KRCrypto::Internal
