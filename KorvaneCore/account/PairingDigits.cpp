#include "KorvaneCore/account/PairingDigits.hpp"

#include "KRCrypto/PairingCrypto.hpp"

namespace Korvane::PairingDigits {

namespace {

constexpr std::size_t groupSize = 4;

} // namespace

std::string of(KRCrypto::ByteView approverPublicKey, KRCrypto::ByteView newDevicePublicKey) {
    KRCrypto::Bytes both(approverPublicKey.begin(), approverPublicKey.end());
    both.insert(both.end(), newDevicePublicKey.begin(), newDevicePublicKey.end());
    return KRCrypto::PairingCrypto::pairingDigits(both);
}

std::string grouped(std::string_view digits) {
    std::string text;
    for (std::size_t i = 0; i < digits.size(); i += groupSize) {
        if (i > 0)
            text += ' ';
        text += digits.substr(i, groupSize);
    }
    return text;
}

std::string bare(std::string_view typed) {
    std::string digits(typed);
    std::erase_if(digits, [](char c) { return c == ' ' || c == '-' || c == '\t' || c == '\r'; });
    return digits;
}

bool same(std::string_view typed, std::string_view digits) {
    return bare(typed) == digits;
}

} // namespace Korvane::PairingDigits
