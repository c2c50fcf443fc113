#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KRCrypto/internal/OpenSSL.hpp"

namespace KRCrypto::Internal {

using Nonce = std::span<const std::uint8_t, gcmIVSize>;
using Tag = std::span<std::uint8_t, gcmTagSize>;
using ConstTag = std::span<const std::uint8_t, gcmTagSize>;

// AES-256-GCM (NIST SP 800-38D, 96-bit nonces, 128-bit tags) under one key, which is expanded when the object
// is made and wiped with it. One message at a time: start, update as often as needed, finish. Outputs may be
// the inputs' own memory.
class AesGcm {
public:
    explicit AesGcm(ByteView key); // throws InvalidKeyLength unless it has 32 bytes

    void startSeal(Nonce nonce, ByteView associated) { start(nullptr, {}, nonce, associated, seals); }

    // With a null output the input is associated data.
    void update(ByteView in, std::uint8_t* out);
    void finishSeal(Tag tag);

    // Whole messages. `out` has the size of the text. Opening throws AuthenticationFailed, having wiped
    // `out`.
    void seal(Nonce nonce, ByteView associated, ByteView plaintext, std::uint8_t* out, Tag tag);
    void open(Nonce nonce, ByteView associated, ByteView ciphertext, ConstTag tag, MutableBytes out);

    // The same under a key for this message only. It is expanded together with the nonce, which saves a third
    // of the time a short message takes. Throw InvalidKeyLength as well.
    static void sealOnce(ByteView key, Nonce nonce, ByteView associated, ByteView plaintext,
                         std::uint8_t* out, Tag tag);
    static void openOnce(ByteView key, Nonce nonce, ByteView associated, ByteView ciphertext, ConstTag tag,
                         MutableBytes out);

private:
    enum Direction : int { opens = 0, seals = 1 }; // as the library counts them

    AesGcm();

    // The algorithm and key are null when they are set already.
    void start(const EVP_CIPHER* algorithm, ByteView key, Nonce nonce, ByteView associated,
               Direction direction);
    void finishOpen(ConstTag tag, MutableBytes out);

    OpenSSLPtr<EVP_CIPHER_CTX> context_;
};

} // namespace KRCrypto::Internal
