#include "KRCrypto/KRCryptoError.hpp"

#include <type_traits>

namespace KRCrypto {

namespace {

constexpr std::size_t shownHashCharacters = 12;

// The first characters of a text. Expected hashes come from outside, so a character may be several bytes.
std::string_view start(std::string_view text, std::size_t characters) {
    std::size_t end = 0;
    for (std::size_t seen = 0; end < text.size(); ++end) {
        const bool continues = (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U;
        if (!continues && ++seen > characters) {
            break;
        }
    }
    return text.substr(0, end);
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
            .append(start(c.expected, shownHashCharacters))
            .append("…, got ")
            .append(start(c.actual, shownHashCharacters))
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
