#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"

namespace KRCrypto {

// An X25519 key pair (RFC 7748), both halves as 32 raw bytes.
class PairingKeyPair {
public:
    static PairingKeyPair generate();

    // Throws InvalidKeyLength.
    static PairingKeyPair fromPrivateKeyBytes(ByteView privateKeyBytes);

    const Bytes& publicKey() const noexcept { return publicKey_; }

    const SecretBytes& privateKey() const noexcept { return privateKey_; }

    bool operator==(const PairingKeyPair&) const = default;

private:
    PairingKeyPair(SecretBytes privateKey, Bytes publicKey);

    SecretBytes privateKey_;
    Bytes publicKey_;
};

// The X25519 shared secret, not yet a key. Throws InvalidKeyLength for the private key, and InvalidPublicKey
// for a public key that is not 32 bytes or is one of the points of low order, with which every secret would
// be zero.
SecretBytes sharedSecret(ByteView myPriv, ByteView theirPub);

} // namespace KRCrypto
