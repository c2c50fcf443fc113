#include "bench/KRCrypto/BareLibrary.hpp"

#include <algorithm>
#include <cstdlib>

namespace {

void require(int result) {
    if (result != 1) {
        std::abort();
    }
}

} // namespace

BareGcm::BareGcm()
    : cipher_(EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr)), context_(EVP_CIPHER_CTX_new()) {
    require(EVP_EncryptInit_ex2(context_, cipher_, benchKey.data(), nullptr, nullptr));
}

BareGcm::~BareGcm() {
    EVP_CIPHER_CTX_free(context_);
    EVP_CIPHER_free(cipher_);
}

void BareGcm::seal(KRCrypto::ByteView aad, KRCrypto::ByteView plain, std::uint8_t* out,
                   const std::uint8_t* key) {
    int size = 0;
    require(EVP_EncryptInit_ex2(context_, nullptr, key, nonce_.data(), nullptr));
    require(EVP_EncryptUpdate(context_, nullptr, &size, aad.data(), static_cast<int>(aad.size())));
    require(EVP_EncryptUpdate(context_, out, &size, plain.data(), static_cast<int>(plain.size())));
    require(EVP_EncryptFinal_ex(context_, out + plain.size(), &size));
    require(EVP_CIPHER_CTX_ctrl(context_, EVP_CTRL_AEAD_GET_TAG, 16, out + plain.size()));
}

void BareGcm::open(KRCrypto::ByteView aad, KRCrypto::ByteView sealed, std::uint8_t* out) {
    int size = 0;
    const auto text = sealed.first(sealed.size() - 16);
    std::array<std::uint8_t, 16> tag{};
    std::copy(sealed.end() - 16, sealed.end(), tag.begin());
    require(EVP_DecryptInit_ex2(context_, nullptr, nullptr, nonce_.data(), nullptr));
    require(EVP_DecryptUpdate(context_, nullptr, &size, aad.data(), static_cast<int>(aad.size())));
    require(EVP_DecryptUpdate(context_, out, &size, text.data(), static_cast<int>(text.size())));
    require(EVP_CIPHER_CTX_ctrl(context_, EVP_CTRL_AEAD_SET_TAG, 16, tag.data()));
    require(EVP_DecryptFinal_ex(context_, out, &size));
}
