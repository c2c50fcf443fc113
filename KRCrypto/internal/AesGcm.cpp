#include "KRCrypto/internal/AesGcm.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/SecretBytes.hpp"

#include <algorithm>
#include <array>

namespace KRCrypto::Internal {

namespace {

// The library counts in int; 1 GiB is a multiple of the block size that fits.
constexpr std::size_t mostPerCall = std::size_t{1} << 30U;

} // namespace

AesGcm::AesGcm(ByteView key) : unreadKey_(key) {
    if (key.size() != keySize) {
        throw KRCryptoError(KRCryptoError::InvalidKeyLength{key.size()});
    }
    context_ = owned(EVP_CIPHER_CTX_new());
}

void AesGcm::expandKey() {
    require(EVP_EncryptInit_ex2(context_.get(), aes256Gcm(), unreadKey_.data(), nullptr, nullptr) == 1);
    unreadKey_ = {};
}

void AesGcm::start(Nonce nonce, ByteView associated, int seals) {
    const EVP_CIPHER* algorithm = unreadKey_.empty() ? nullptr : aes256Gcm();
    require(EVP_CipherInit_ex2(context_.get(), algorithm, unreadKey_.data(), nonce.data(), seals, nullptr) ==
            1);
    unreadKey_ = {};
    if (!associated.empty()) {
        int written = 0;
        require(EVP_CipherUpdate(context_.get(), nullptr, &written, associated.data(),
                                 static_cast<int>(associated.size())) == 1);
    }
}

void AesGcm::update(ByteView in, std::uint8_t* out) {
    // An empty update with a null output would be taken for associated data, so it is not made.
    while (!in.empty()) {
        const std::size_t size = std::min(in.size(), mostPerCall);
        int written = 0;
        require(EVP_CipherUpdate(context_.get(), out, &written, in.data(), static_cast<int>(size)) == 1);
        in = in.subspan(size);
        out += size;
    }
}

void AesGcm::finishSeal(std::span<std::uint8_t, gcmTagSize> tag) {
    int written = 0;
    require(EVP_CipherFinal_ex(context_.get(), tag.data(), &written) == 1);
    require(EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_GET_TAG, gcmTagSize, tag.data()) == 1);
}

bool AesGcm::finishOpen(std::span<const std::uint8_t, gcmTagSize> tag) {
    const ErrorQueueScope errors;
    std::array<std::uint8_t, gcmTagSize> expected{};
    std::ranges::copy(tag, expected.begin());
    require(EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_SET_TAG, gcmTagSize, expected.data()) == 1);
    int written = 0;
    return EVP_CipherFinal_ex(context_.get(), expected.data(), &written) == 1;
}

void AesGcm::seal(Nonce nonce, ByteView associated, ByteView plaintext, std::uint8_t* out,
                  std::span<std::uint8_t, gcmTagSize> tag) {
    startSeal(nonce, associated);
    update(plaintext, out);
    finishSeal(tag);
}

void AesGcm::open(Nonce nonce, ByteView associated, ByteView ciphertext,
                  std::span<const std::uint8_t, gcmTagSize> tag, MutableBytes out) {
    startOpen(nonce, associated);
    update(ciphertext, out.data());
    if (!finishOpen(tag)) {
        wipe(out);
        throw KRCryptoError(KRCryptoError::AuthenticationFailed{});
    }
}

} // namespace KRCrypto::Internal
