#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KRCrypto/internal/OpenSSL.hpp"

namespace KRCrypto::Internal {

using Nonce = std::span<const std::uint8_t, gcmIVSize>;

// AES-256-GCM (NIST SP 800-38D, 96-bit nonces, 128-bit tags) under one key, which is expanded once and wiped
// with the object. One message at a time: start, update as often as needed, finish. Outputs may be the
// inputs' own memory.
class AesGcm {
public:
    // Throws InvalidKeyLength unless the key has 32 bytes. Its bytes are read with the first message, which
    // saves a third of the time a short one takes; whoever cannot keep them that long calls expandKey().
    explicit AesGcm(ByteView key);
    void expandKey();

    void startSeal(Nonce nonce, ByteView associated) { start(nonce, associated, 1); }

    void startOpen(Nonce nonce, ByteView associated) { start(nonce, associated, 0); }

    void update(ByteView in, std::uint8_t* out);
    void finishSeal(std::span<std::uint8_t, gcmTagSize> tag);
    bool finishOpen(std::span<const std::uint8_t, gcmTagSize> tag); // false: not authentic

    // Whole messages. `out` has the size of the text.
    void seal(Nonce nonce, ByteView associated, ByteView plaintext, std::uint8_t* out,
              std::span<std::uint8_t, gcmTagSize> tag);
    // Throws AuthenticationFailed, having wiped `out`.
    void open(Nonce nonce, ByteView associated, ByteView ciphertext,
              std::span<const std::uint8_t, gcmTagSize> tag, MutableBytes out);

private:
    void start(Nonce nonce, ByteView associated, int seals);

    OpenSSLPtr<EVP_CIPHER_CTX> context_;
    ByteView unreadKey_; // empty once it is expanded
};

} // namespace KRCrypto::Internal
