#include "KRCrypto/B64.hpp"

#include "KRCrypto/KRCryptoError.hpp"

#include <array>

namespace KRCrypto::B64 {

namespace {

constexpr std::string_view standardAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view urlAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

constexpr std::uint8_t noDigit = 0xFF;
using DigitTable = std::array<std::uint8_t, 256>;

constexpr DigitTable digitTable(bool alsoURL) {
    DigitTable table{};
    table.fill(noDigit);
    for (std::size_t digit = 0; digit < standardAlphabet.size(); ++digit) {
        table[static_cast<unsigned char>(standardAlphabet[digit])] = static_cast<std::uint8_t>(digit);
        if (alsoURL) {
            table[static_cast<unsigned char>(urlAlphabet[digit])] = static_cast<std::uint8_t>(digit);
        }
    }
    return table;
}

constexpr DigitTable standardDigits = digitTable(false);
constexpr DigitTable urlDigits = digitTable(true);

constexpr std::size_t encodedSize(std::size_t size) {
    return (size * 4 + 2) / 3;
}

// Writes encodedSize(data.size()) characters.
template <class Character>
void encodeDigits(ByteView data, std::string_view alphabet, Character* out) {
    std::uint32_t bits = 0;
    unsigned held = 0;
    for (const std::uint8_t byte : data) {
        bits = (bits << 8U) | byte;
        for (held += 8; held >= 6; held -= 6) {
            *out++ = static_cast<Character>(alphabet[(bits >> (held - 6)) & 0x3FU]);
        }
    }
    if (held > 0) {
        *out = static_cast<Character>(alphabet[(bits << (6 - held)) & 0x3FU]);
    }
}

std::uint8_t* start(Bytes& bytes) {
    return bytes.data();
}

std::uint8_t* start(SecretBytes& secret) {
    return secret.bytes().data();
}

// Decodes digits without their padding into bytes of either kind.
template <class Output>
Output decodeDigits(std::string_view digits, const DigitTable& table) {
    Output output(digits.size() * 3 / 4);
    std::uint8_t* out = start(output);
    std::uint32_t bits = 0;
    unsigned held = 0;
    for (const char c : digits) {
        const std::uint8_t digit = table[static_cast<unsigned char>(c)];
        if (digit == noDigit) {
            throw KRCryptoError(KRCryptoError::InvalidEncoding{});
        }
        bits = (bits << 6U) | digit;
        held += 6;
        if (held >= 8) {
            held -= 8;
            *out++ = static_cast<std::uint8_t>(bits >> held);
        }
    }
    return output;
}

std::size_t paddingOf(std::string_view text) {
    const auto last = text.find_last_not_of('=');
    return text.size() - (last == std::string_view::npos ? 0 : last + 1);
}

// With its padding, a text is a multiple of four characters long, and at most two of them are padding.
std::string_view withoutPadding(std::string_view text, bool mayLackPadding) {
    const std::size_t present = paddingOf(text);
    const std::size_t missing = mayLackPadding ? (4 - text.size() % 4) % 4 : 0;
    if ((text.size() + missing) % 4 != 0 || present + missing > 2) {
        throw KRCryptoError(KRCryptoError::InvalidEncoding{});
    }
    return text.substr(0, text.size() - present);
}

} // namespace

std::string encode(ByteView data) {
    std::string text((data.size() + 2) / 3 * 4, '=');
    encodeDigits(data, standardAlphabet, text.data());
    return text;
}

Bytes decode(std::string_view text) {
    const bool unpadded = text.find('=') == std::string_view::npos;
    return decodeDigits<Bytes>(withoutPadding(text, unpadded), standardDigits);
}

std::string encodeURL(ByteView data) {
    std::string text(encodedSize(data.size()), '\0');
    encodeDigits(data, urlAlphabet, text.data());
    return text;
}

Bytes decodeURL(std::string_view text) {
    return decodeDigits<Bytes>(withoutPadding(text, true), urlDigits);
}

SecretBytes encodeSecretURL(ByteView data) {
    SecretBytes text(encodedSize(data.size()));
    encodeDigits(data, urlAlphabet, text.bytes().data());
    return text;
}

SecretBytes decodeSecretURL(std::string_view text) {
    return decodeDigits<SecretBytes>(withoutPadding(text, true), urlDigits);
}

} // namespace KRCrypto::B64
