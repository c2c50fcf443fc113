#pragma once

#include "KRCrypto/SecretBytes.hpp"

#include <boost/json/value.hpp>

#include <string>
#include <string_view>

namespace Korvane {

/// A text that is a secret, such as a token: wiped, not printable, compared in constant time. In JSON a
/// string, where SecretBytes are Base64.
class SecretText {
public:
    SecretText() = default;

    SecretText(std::string_view text) // NOLINT(google-explicit-constructor): as a std::string takes one
        : bytes_(KRCrypto::SecretBytes::copyOf(text)) {}

    SecretText(const char* text) // NOLINT(google-explicit-constructor)
        : SecretText(std::string_view(text)) {}

    SecretText(const std::string& text) // NOLINT(google-explicit-constructor)
        : SecretText(std::string_view(text)) {}

    [[nodiscard]] std::string_view text() const noexcept { return bytes_.text(); }

    [[nodiscard]] bool empty() const noexcept { return bytes_.empty(); }

    friend bool operator==(const SecretText&, const SecretText&) = default;

private:
    KRCrypto::SecretBytes bytes_;
};

[[nodiscard]] boost::json::value encodeJSON(const SecretText& text);
void decodeJSON(const boost::json::value& json, SecretText& text);

} // namespace Korvane
