#include "KRCrypto/PairingCrypto.hpp"

#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/Derivation.hpp"
#include "KRCrypto/PairingKeyPair.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "KRCrypto/internal/KeyAgreement.hpp"

namespace KRCrypto::PairingCrypto {

namespace {

constexpr std::string_view codeLabel = "Korvane-pairing-code-v1";
constexpr std::size_t codeDigits = 16;
constexpr std::uint64_t codeRange = 10000000000000000; // 10^16

} // namespace

SecretBytes pairKey(ByteView myPriv, ByteView theirPub, ByteView approverPub, ByteView newDevicePub) {
    return Internal::agreedKey(myPriv, theirPub, CryptoContext::pair, approverPub, newDevicePub);
}

Bytes pairSeal(ByteView myPriv, ByteView myPub, ByteView theirPub, const MasterKey& mk) {
    return seal(pairKey(myPriv, theirPub, myPub, theirPub), mk.bytes(), CryptoContext::pair);
}

MasterKey pairOpen(ByteView myPriv, ByteView theirPub, ByteView myPub, ByteView sealed) {
    return MasterKey::fromBytes(
        openSecret(pairKey(myPriv, theirPub, theirPub, myPub), sealed, CryptoContext::pair));
}

std::string pairingDigits(ByteView data) {
    Sha256 hasher;
    hasher.update(asBytes(codeLabel));
    hasher.update(data);
    const Digest digest = hasher.digest();
    std::uint64_t number = 0;
    for (const std::uint8_t byte : std::span(digest).first<8>()) {
        number = number << 8U | byte;
    }
    const std::string digits = std::to_string(number % codeRange);
    return std::string(codeDigits - digits.size(), '0') + digits;
}

} // namespace KRCrypto::PairingCrypto
