#include "KRCrypto/UnicodeText.hpp"

#include "KRCrypto/KRCryptoError.hpp"

#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace KRCrypto {

namespace {

// The one code point whose lower case, without regard to its neighbours, is more than one code point.
constexpr char32_t capitalIWithDot = 0x130;
constexpr std::string_view smallIWithCombiningDot = "i\u0307";

bool isASCII(std::string_view text) noexcept {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

char asciiLower(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

} // namespace

char32_t CodePoints::next() {
    constexpr std::size_t longest = 4;
    const auto left = static_cast<int32_t>(std::min(text_.size() - next_, longest));
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text_.data()) + next_;
    int32_t used = 0;
    UChar32 codePoint = 0;
    U8_NEXT(bytes, used, left, codePoint); // NOLINT(bugprone-inc-dec-in-conditions): the macro's own
    if (codePoint < 0) {
        throw KRCryptoError(KRCryptoError::InvalidEncoding{});
    }
    next_ += static_cast<std::size_t>(used);
    return static_cast<char32_t>(codePoint);
}

void appendUTF8(std::string& text, char32_t codePoint) {
    std::uint8_t bytes[U8_MAX_LENGTH]{}; // NOLINT(modernize-avoid-c-arrays): what the macro writes to
    int32_t size = 0;
    U8_APPEND_UNSAFE(bytes, size, static_cast<UChar32>(codePoint));
    text.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

void requireUTF8(std::string_view text) {
    for (CodePoints points(text); !points.atEnd();) {
        points.next();
    }
}

bool isUTF8(std::string_view text) noexcept {
    try {
        requireUTF8(text);
        return true;
    } catch (const KRCryptoError&) {
        return false;
    }
}

std::string toNFC(std::string_view text) {
    if (isASCII(text)) {
        return std::string(text);
    }
    requireUTF8(text);
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<int32_t>::max())) {
        throw std::length_error("A text of more than 2 GiB cannot be composed");
    }
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* composer = icu::Normalizer2::getNFCInstance(status);
    std::string composed;
    icu::StringByteSink<std::string> sink(&composed);
    if (U_SUCCESS(status)) {
        composer->normalizeUTF8(0, icu::StringPiece(text.data(), static_cast<int32_t>(text.size())), sink,
                                nullptr, status);
    }
    if (U_FAILURE(status)) {
        throw std::runtime_error("The Unicode library cannot compose text");
    }
    return composed;
}

std::string toLower(std::string_view text) {
    std::string lower;
    lower.reserve(text.size());
    if (isASCII(text)) {
        std::ranges::transform(text, std::back_inserter(lower), asciiLower);
        return lower;
    }
    for (CodePoints points(text); !points.atEnd();) {
        const char32_t codePoint = points.next();
        if (codePoint == capitalIWithDot) {
            lower += smallIWithCombiningDot;
        } else {
            appendUTF8(lower, static_cast<char32_t>(u_tolower(static_cast<UChar32>(codePoint))));
        }
    }
    return lower;
}

bool isWhiteSpace(char32_t codePoint) noexcept {
    return u_isUWhiteSpace(static_cast<UChar32>(codePoint)) != 0;
}

std::string_view trimmed(std::string_view text) {
    std::size_t start = text.size();
    std::size_t end = 0;
    for (CodePoints points(text); !points.atEnd();) {
        const std::size_t at = points.offset();
        if (!isWhiteSpace(points.next())) {
            start = std::min(start, at);
            end = points.offset();
        }
    }
    return end == 0 ? std::string_view{} : text.substr(start, end - start);
}

} // namespace KRCrypto
