#include "KRCrypto/Hex.hpp"

#include "KRCrypto/KRCryptoError.hpp"

namespace KRCrypto {

std::string hexString(ByteView data) {
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(data.size() * 2);
    for (const std::uint8_t byte : data) {
        text += digits[byte >> 4U];
        text += digits[byte & 0x0FU];
    }
    return text;
}

int Hex::digitValue(char c) noexcept {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

Bytes Hex::decode(std::string_view text) {
    if (text.size() % 2 != 0) {
        throw KRCryptoError(KRCryptoError::InvalidEncoding{});
    }
    Bytes bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t at = 0; at < text.size(); at += 2) {
        const int high = digitValue(text[at]);
        const int low = digitValue(text[at + 1]);
        if (high < 0 || low < 0) {
            throw KRCryptoError(KRCryptoError::InvalidEncoding{});
        }
        bytes.push_back(static_cast<std::uint8_t>(high * 16 + low));
    }
    return bytes;
}

} // namespace KRCrypto
