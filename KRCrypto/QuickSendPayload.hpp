#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace KRCrypto {

// A small item passed between a user's own devices. Texts are UTF-8.
struct QuickSendPayload {
    struct Text {
        std::string text;
        bool operator==(const Text&) const = default;
    };

    struct Link {
        std::string url;
        bool operator==(const Link&) const = default;
    };

    struct File {
        std::string fileId;
        std::string name;
        std::string mime;
        std::int64_t size = 0; // bytes
        bool operator==(const File&) const = default;
    };

    using Content = std::variant<Text, Link, File>;

    std::string sentAt;
    Content content;

    // A link when the text, without white space at its ends, is an openable link; otherwise that text. Throws
    // InvalidEncoding when it is not UTF-8.
    static QuickSendPayload fromText(std::string_view text, std::string sentAt);

    bool operator==(const QuickSendPayload&) const = default;
};

// Begins with "http://" or "https://", in either case, and has no white space (Unicode's) in it.
bool isOpenableQuickSendLink(std::string_view text) noexcept;

} // namespace KRCrypto
