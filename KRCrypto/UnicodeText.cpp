#include "KRCrypto/UnicodeText.hpp"

#include "KRCrypto/KRCryptoError.hpp"

#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace KRCrypto {

namespace {

// The one code point whose lower case, without regard to its neighbours, is more than one code point.
constexpr char32_t capitalIWithDot = 0x130;
constexpr std::string_view smallIWithCombiningDot = "i\u0307";

bool isASCII(std::string_view text) noexcept {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

[[noreturn]] void refuse() {
    throw KRCryptoError(KRCryptoError::InvalidEncoding{});
}

// Whether what the code point stands for begins with a combining mark that composing may move.
bool beginsWithMark(char32_t c) {
    constexpr char32_t firstMark = 0x300;
    return c >= firstMark &&
           u_getIntPropertyValue(static_cast<UChar32>(c), UCHAR_LEAD_CANONICAL_COMBINING_CLASS) != 0;
}

void requireComposable(std::string_view text) {
    if (!std::in_range<int32_t>(text.size())) { // as the library counts
        refuse();
    }
    std::size_t marks = 0;
    for (CodePoints points(text); !points.atEnd();) {
        marks = beginsWithMark(points.next()) ? marks + 1 : 0;
        if (marks > mostMarks) {
            refuse();
        }
    }
}

} // namespace

std::optional<char32_t> CodePoints::tryNext() noexcept {
    constexpr std::size_t longest = 4;
    const auto left = static_cast<int32_t>(std::min(text_.size() - next_, longest));
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text_.data()) + next_;
    int32_t used = 0;
    UChar32 codePoint = 0;
    U8_NEXT(bytes, used, left, codePoint); // NOLINT(bugprone-inc-dec-in-conditions): the macro's own
    next_ += static_cast<std::size_t>(used);
    return codePoint < 0 ? std::nullopt : std::optional(static_cast<char32_t>(codePoint));
}

char32_t CodePoints::next() {
    const auto codePoint = tryNext();
    if (!codePoint) {
        refuse();
    }
    return *codePoint;
}

void appendUTF8(std::string& text, char32_t codePoint) {
    std::uint8_t bytes[U8_MAX_LENGTH]{}; // NOLINT(modernize-avoid-c-arrays): what the macro writes to
    int32_t size = 0;
    U8_APPEND_UNSAFE(bytes, size, static_cast<UChar32>(codePoint));
    text.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

void requireUTF8(std::string_view text) {
    if (!isUTF8(text)) {
        refuse();
    }
}

bool isUTF8(std::string_view text) noexcept {
    for (CodePoints points(text); !points.atEnd();) {
        if (!points.tryNext()) {
            return false;
        }
    }
    return true;
}

std::string_view startOf(std::string_view text, std::size_t bytes) noexcept {
    if (text.size() <= bytes) {
        return text;
    }
    while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xC0U) == 0x80U) {
        --bytes;
    }
    return text.substr(0, bytes);
}

std::string toNFC(std::string_view text) {
    if (isASCII(text)) {
        return std::string(text);
    }
    requireComposable(text);
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* composer = icu::Normalizer2::getNFCInstance(status);
    std::string composed;
    icu::StringByteSink<std::string> sink(&composed);
    if (U_SUCCESS(status)) {
        composer->normalizeUTF8(0, icu::StringPiece(text.data(), static_cast<int32_t>(text.size())), sink,
                                nullptr, status);
    }
    if (U_FAILURE(status)) {
        throw std::runtime_error("The Unicode library failed"); // out of memory, or its data are missing
    }
    return composed;
}

char asciiLower(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
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
