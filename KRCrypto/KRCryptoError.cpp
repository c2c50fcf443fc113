#include "KRCrypto/KRCryptoError.hpp"

#include "KRCrypto/UnicodeText.hpp"

#include <type_traits>

namespace KRCrypto {

namespace {

constexpr std::size_t shownHashCharacters = 12;

// The first characters of a text. Expected hashes come from outside, so a character may be several bytes, and
// bytes that are no character are shown as U+FFFD.
std::string start(std::string_view text) {
    constexpr char32_t replacement = 0xFFFD;
    std::string shown;
    CodePoints points(text);
    for (std::size_t seen = 0; seen < shownHashCharacters && !points.atEnd(); ++seen) {
        appendUTF8(shown, points.tryNext().value_or(replacement));
    }
    return shown;
}

struct Describe {
    std::string operator()(const KRCryptoError::UnsupportedVersion& c) const {
        return "Unsupported sealed-box version " + std::to_string(c.version);
    }

    std::string operator()(const KRCryptoError::InvalidKeyLength& c) const {
        return "Invalid key length " + std::to_string(c.count);
    }

    std::string operator()(const KRCryptoError::Argon2& c) const {
        return "Argon2 error " + std::to_string(c.code) + ": " + c.message;
    }

    std::string operator()(const KRCryptoError::HashMismatch& c) const {
        return std::string("Integrity check failed (expected ")
            .append(start(c.expected))
            .append("…, got ")
            .append(start(c.actual))
            .append("…)");
    }

    template <class C>
    std::string operator()(const C&) const {
        return std::string(C::text);
    }
};

struct SamePayload {
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
        if constexpr (!std::is_same_v<A, B>) {
            return false;
        } else if constexpr (std::is_empty_v<A>) {
            return true;
        } else {
            return a == b;
        }
    }
};

} // namespace

KRCryptoError::KRCryptoError(Case value)
    : value_(std::move(value)), description_(std::visit(Describe{}, value_)) {}

bool operator==(const KRCryptoError& a, const KRCryptoError& b) {
    return std::visit(SamePayload{}, a.value_, b.value_);
}

} // namespace KRCrypto
