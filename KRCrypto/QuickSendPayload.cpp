#include "KRCrypto/QuickSendPayload.hpp"

#include "KRCrypto/UnicodeText.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace KRCrypto {

namespace {

bool startsWithScheme(std::string_view text, std::string_view scheme) {
    const auto same = [](char c, char lower) {
        return c == lower || (c >= 'A' && c <= 'Z' && static_cast<char>(c - 'A' + 'a') == lower);
    };
    return text.size() > scheme.size() && std::ranges::equal(text.substr(0, scheme.size()), scheme, same);
}

bool isUnbroken(std::string_view text) {
    constexpr char32_t firstPrintable = 0x20;
    constexpr char32_t del = 0x7F;
    for (CodePoints points(text); !points.atEnd();) {
        const char32_t c = points.next();
        if (isWhiteSpace(c) || c < firstPrintable || c == del) {
            return false;
        }
    }
    return true;
}

} // namespace

QuickSendPayload QuickSendPayload::fromText(std::string_view text, std::string sentAt) {
    std::string kept(trimmed(text));
    if (isOpenableQuickSendLink(kept)) {
        return {.sentAt = std::move(sentAt), .content = Link{std::move(kept)}};
    }
    return {.sentAt = std::move(sentAt), .content = Text{std::move(kept)}};
}

bool isOpenableQuickSendLink(std::string_view text) {
    return (startsWithScheme(text, "http://") || startsWithScheme(text, "https://")) && isUTF8(text) &&
           isUnbroken(text);
}

} // namespace KRCrypto
