#include "KRCrypto/QuickSendPayload.hpp"

#include "KRCrypto/UnicodeText.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace KRCrypto {

namespace {

bool startsWithScheme(std::string_view text, std::string_view scheme) {
    const auto same = [](char c, char lower) { return asciiLower(c) == lower; };
    return text.size() >= scheme.size() && std::ranges::equal(text.substr(0, scheme.size()), scheme, same);
}

// False also for what is not UTF-8.
bool isUnbroken(std::string_view text) noexcept {
    for (CodePoints points(text); !points.atEnd();) {
        const auto c = points.tryNext();
        if (!c || isWhiteSpace(*c)) {
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

bool isOpenableQuickSendLink(std::string_view text) noexcept {
    return (startsWithScheme(text, "http://") || startsWithScheme(text, "https://")) && isUnbroken(text);
}

} // namespace KRCrypto
