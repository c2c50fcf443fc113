#include "KRCrypto/PairingKeyPair.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Random.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KRCrypto/internal/KeySize.hpp"
#include "KRCrypto/internal/OpenSSL.hpp"

#include <utility>

namespace KRCrypto {

namespace {

using Internal::owned;
using Internal::require;

auto privateKeyOf(ByteView bytes) {
    Internal::requireKeySize(bytes);
    return owned(EVP_PKEY_new_raw_private_key_ex(nullptr, "X25519", nullptr, bytes.data(), bytes.size()));
}

[[noreturn]] void refusePublicKey() {
    throw KRCryptoError(KRCryptoError::InvalidPublicKey{});
}

} // namespace

PairingKeyPair::PairingKeyPair(SecretBytes privateKey, Bytes publicKey)
    : privateKey_(std::move(privateKey)), publicKey_(std::move(publicKey)) {}

PairingKeyPair PairingKeyPair::generate() {
    return fromPrivateKeyBytes(randomSecret(keySize));
}

PairingKeyPair PairingKeyPair::fromPrivateKeyBytes(ByteView privateKeyBytes) {
    const auto key = privateKeyOf(privateKeyBytes);
    Bytes publicKey(keySize);
    std::size_t size = publicKey.size();
    require(EVP_PKEY_get_raw_public_key(key.get(), publicKey.data(), &size) == 1 && size == keySize);
    return {SecretBytes::copyOf(privateKeyBytes), std::move(publicKey)};
}

SecretBytes sharedSecret(ByteView myPriv, ByteView theirPub) {
    const auto mine = privateKeyOf(myPriv);
    if (theirPub.size() != keySize) {
        refusePublicKey();
    }
    const auto theirs =
        owned(EVP_PKEY_new_raw_public_key_ex(nullptr, "X25519", nullptr, theirPub.data(), theirPub.size()));
    const auto context = owned(EVP_PKEY_CTX_new_from_pkey(nullptr, mine.get(), nullptr));
    require(EVP_PKEY_derive_init(context.get()) == 1 &&
            EVP_PKEY_derive_set_peer(context.get(), theirs.get()) == 1);
    SecretBytes secret(keySize);
    std::size_t size = secret.size();
    const Internal::ErrorQueueScope errors;
    if (EVP_PKEY_derive(context.get(), secret.bytes().data(), &size) != 1 || secret == SecretBytes(keySize)) {
        refusePublicKey();
    }
    return secret;
}

} // namespace KRCrypto
