#include "KRCrypto/RecoveryCode.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KRCrypto/UnicodeText.hpp"

#include <optional>

namespace KRCrypto {

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
constexpr std::size_t bitsPerCharacter = 5;
constexpr std::size_t groupSize = 4;
constexpr std::size_t codeCharacters = (keySize * 8 + bitsPerCharacter - 1) / bitsPerCharacter;

[[noreturn]] void refuse() {
    throw KRCryptoError(KRCryptoError::InvalidRecoveryCode{});
}

std::uint32_t digitOf(char32_t c) {
    if (c >= U'a' && c <= U'z') {
        return static_cast<std::uint32_t>(c - U'a');
    }
    if (c >= U'A' && c <= U'Z') {
        return static_cast<std::uint32_t>(c - U'A');
    }
    if (c >= U'2' && c <= U'7') {
        return static_cast<std::uint32_t>(c - U'2') + 26;
    }
    refuse();
}

// The next code point that counts.
std::optional<char32_t> nextCharacter(CodePoints& points) {
    while (!points.atEnd()) {
        const char32_t c = points.next();
        if (c != U'-' && !isWhiteSpace(c)) {
            return c;
        }
    }
    return std::nullopt;
}

SecretBytes parse(std::string_view text) {
    SecretBytes secret(keySize);
    std::size_t characters = 0;
    std::size_t bytes = 0;
    std::uint32_t bits = 0;
    std::size_t held = 0;
    CodePoints points(text);
    while (const auto c = nextCharacter(points)) {
        if (++characters > codeCharacters) {
            refuse();
        }
        bits = ((bits << bitsPerCharacter) | digitOf(*c)) & 0xFFFFU;
        held += bitsPerCharacter;
        if (held >= 8) {
            held -= 8;
            secret.bytes()[bytes++] = static_cast<std::uint8_t>(bits >> held);
        }
    }
    const std::uint32_t spare = bits & ((1U << held) - 1U);
    if (characters != codeCharacters || spare != 0) {
        refuse();
    }
    return secret;
}

} // namespace

SecretBytes formatRecoveryCode(ByteView secret) {
    const std::size_t characters = (secret.size() * 8 + bitsPerCharacter - 1) / bitsPerCharacter;
    SecretBytes code(characters == 0 ? 0 : characters + (characters - 1) / groupSize);
    auto out = code.bytes().begin();
    for (std::size_t character = 0; character < characters; ++character) {
        if (character > 0 && character % groupSize == 0) {
            *out++ = '-';
        }
        const std::size_t bit = character * bitsPerCharacter;
        const std::uint32_t high = secret[bit / 8];
        const std::uint32_t low = bit / 8 + 1 < secret.size() ? secret[bit / 8 + 1] : 0;
        const std::uint32_t digit = (((high << 8U) | low) >> (16 - bitsPerCharacter - bit % 8)) & 0x1FU;
        *out++ = static_cast<std::uint8_t>(alphabet[digit]);
    }
    return code;
}

SecretBytes parseRecoveryCode(std::string_view text) {
    try {
        return parse(text);
    } catch (const KRCryptoError&) {
        refuse(); // text that is not UTF-8 is no recovery code either
    }
}

} // namespace KRCrypto
