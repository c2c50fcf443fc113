#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"
#include "KRCrypto/Sizes.hpp"

#include <memory>
#include <string_view>

// Sealed boxes: a byte string encrypted and authenticated with AES-256-GCM under a 32-byte key and bound to a
// label.
//
//   offset  length  content
//   0       1       version, 0x01
//   1       12      nonce, random for every box
//   13      n       ciphertext of the n plaintext bytes
//   13 + n  16      tag over ciphertext and label
//
// The label is not stored; whoever opens a box gives it again. Every function may be called from any thread.
namespace KRCrypto {

// The box of `plaintext`. Throws InvalidKeyLength.
Bytes seal(ByteView key, ByteView plaintext, std::string_view aad);

// The plaintext of a box. Throws, in this order: MalformedSealed when empty, UnsupportedVersion,
// MalformedSealed below 29 bytes, InvalidKeyLength, AuthenticationFailed.
Bytes open(ByteView key, ByteView sealed, std::string_view aad);

// The same, for boxes that hold a key.
SecretBytes openSecret(ByteView key, ByteView sealed, std::string_view aad);

// Into memory the caller keeps, which must not overlap the input; returns the part of `out` that was written.
// Throws SizeMismatch when `out` is too small: sealing takes 29 bytes more than the plaintext, opening 29
// fewer than the box. A box that does not open leaves nothing of its plaintext in `out`.
ByteView sealInto(ByteView key, ByteView plaintext, std::string_view aad, MutableBytes out);
ByteView openInto(ByteView key, ByteView sealed, std::string_view aad, MutableBytes out);

namespace Internal {
class AesGcm;
}

// A key made ready for many boxes: the functions above expand their key each time and leave nothing of it
// behind, which for short texts takes as long as sealing them. This keeps the expanded key until its end,
// then wipes it. One thread at a time.
class SealingKey {
public:
    explicit SealingKey(ByteView key); // throws InvalidKeyLength
    SealingKey(const SealingKey&) = delete;
    SealingKey& operator=(const SealingKey&) = delete;
    SealingKey(SealingKey&&) noexcept;
    SealingKey& operator=(SealingKey&&) noexcept;
    ~SealingKey();

    Bytes seal(ByteView plaintext, std::string_view aad);
    Bytes open(ByteView sealed, std::string_view aad);
    ByteView sealInto(ByteView plaintext, std::string_view aad, MutableBytes out);
    ByteView openInto(ByteView sealed, std::string_view aad, MutableBytes out);

private:
    std::unique_ptr<Internal::AesGcm> cipher_;
};

} // namespace KRCrypto
