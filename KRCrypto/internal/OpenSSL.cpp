#include "KRCrypto/internal/OpenSSL.hpp"

namespace KRCrypto::Internal {

namespace {

template <class T>
T* found(T* algorithm) {
    require(algorithm != nullptr);
    return algorithm;
}

} // namespace

EVP_CIPHER* aes256Gcm() {
    static EVP_CIPHER* const algorithm = found(EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr));
    return algorithm;
}

EVP_MD* sha256Digest() {
    static EVP_MD* const algorithm = found(EVP_MD_fetch(nullptr, "SHA256", nullptr));
    return algorithm;
}

EVP_MAC* hmac() {
    static EVP_MAC* const algorithm = found(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
    return algorithm;
}

EVP_KDF* hkdfAlgorithm() {
    static EVP_KDF* const algorithm = found(EVP_KDF_fetch(nullptr, "HKDF", nullptr));
    return algorithm;
}

} // namespace KRCrypto::Internal
