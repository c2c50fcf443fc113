#pragma once

#include "KRCrypto/Bytes.hpp"

#include <openssl/evp.h>

#include <array>

// OpenSSL's AES-256-GCM with nothing around it: the yardstick.
class BareGcm {
public:
    BareGcm();
    ~BareGcm();
    BareGcm(const BareGcm&) = delete;
    BareGcm& operator=(const BareGcm&) = delete;

    // `out` takes ciphertext and tag. Only the nonce is new; with a key, that as well.
    void seal(KRCrypto::ByteView aad, KRCrypto::ByteView plain, std::uint8_t* out,
              const std::uint8_t* key = nullptr);
    // Stops the program when the tag does not fit.
    void open(KRCrypto::ByteView aad, KRCrypto::ByteView sealed, std::uint8_t* out);

    void useNonce(std::uint8_t first) { nonce_[0] = first; }

private:
    EVP_CIPHER* cipher_;
    EVP_CIPHER_CTX* context_;
    std::array<std::uint8_t, 12> nonce_{};
};

inline constexpr std::array<std::uint8_t, 32> benchKey{1, 2, 3};
