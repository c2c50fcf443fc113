#include "KRCrypto/Random.hpp"

#include "KRCrypto/internal/SystemRandom.hpp"

namespace KRCrypto {

void fillRandom(MutableBytes out) {
    Internal::fillRandom(out, Internal::systemRandom, Internal::generatedRandom);
}

Bytes randomBytes(std::size_t count) {
    Bytes bytes(count);
    fillRandom(bytes);
    return bytes;
}

SecretBytes randomSecret(std::size_t count) {
    SecretBytes secret(count);
    fillRandom(secret.bytes());
    return secret;
}

} // namespace KRCrypto
