#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <variant>

namespace KRCrypto {

// Every failure of the encryption core. `what()` is the sentence users are shown; what to do about a failure
// follows from its case, never from the sentence. Holds no key material.
class KRCryptoError : public std::exception {
public:
    struct UnsupportedVersion {
        std::uint8_t version;
        bool operator==(const UnsupportedVersion&) const = default;
    };

    struct InvalidKeyLength {
        std::size_t count; // bytes
        bool operator==(const InvalidKeyLength&) const = default;
    };

    struct Argon2 {
        std::int32_t code;
        std::string message;
        bool operator==(const Argon2&) const = default;
    };

    struct HashMismatch {
        std::string expected; // hex, as the caller gave it
        std::string actual;   // lower-case hex
        bool operator==(const HashMismatch&) const = default;
    };

    // clang-format off
    struct MalformedSealed { static constexpr std::string_view text = "Malformed sealed box"; };
    struct AuthenticationFailed { static constexpr std::string_view text = "Decryption failed (wrong key or tampered data)"; };
    struct InvalidRecoveryCode { static constexpr std::string_view text = "Invalid recovery code"; };
    struct InvalidEncoding { static constexpr std::string_view text = "Invalid encoding"; };
    struct InvalidFragment { static constexpr std::string_view text = "Invalid link key fragment"; };
    struct InvalidMeta { static constexpr std::string_view text = "Invalid metadata"; };
    struct SizeMismatch { static constexpr std::string_view text = "Size mismatch"; };
    struct FileChangedDuringRead { static constexpr std::string_view text = "File changed while it was being read"; };
    struct InvalidChunkIndex { static constexpr std::string_view text = "Invalid chunk index"; };
    struct InvalidPublicKey { static constexpr std::string_view text = "Invalid public key"; };
    struct InvalidPassword { static constexpr std::string_view text = "A link password and its salt must both be present (and non-empty)"; };
    struct QuickSendTooLarge { static constexpr std::string_view text = "Quick Send item is too large"; };

    // clang-format on

    using Case = std::variant<UnsupportedVersion, InvalidKeyLength, Argon2, HashMismatch, MalformedSealed,
                              AuthenticationFailed, InvalidRecoveryCode, InvalidEncoding, InvalidFragment,
                              InvalidMeta, SizeMismatch, FileChangedDuringRead, InvalidChunkIndex,
                              InvalidPublicKey, InvalidPassword, QuickSendTooLarge>;

    explicit KRCryptoError(Case value);

    const Case& value() const noexcept { return value_; }

    template <class C>
    bool is() const noexcept {
        return std::holds_alternative<C>(value_);
    }

    const std::string& description() const noexcept { return description_; }

    const char* what() const noexcept override { return description_.c_str(); }

    // Same case, same payload. Two hash mismatches that say the same sentence can differ, since it shows the
    // start of the hashes only.
    friend bool operator==(const KRCryptoError& a, const KRCryptoError& b);

private:
    Case value_;
    std::string description_;
};

} // namespace KRCrypto
