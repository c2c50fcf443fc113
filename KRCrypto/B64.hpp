#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"

#include <string>
#include <string_view>

// Base64 (RFC 4648). Decoding refuses white space and accepts non-zero spare bits; it throws InvalidEncoding.
namespace KRCrypto::B64 {

// "+" and "/", padded with "=".
std::string encode(ByteView data);

// Padding may be missing altogether, but not in part.
Bytes decode(std::string_view text);

// "-" and "_", no padding.
std::string encodeURL(ByteView data);

// Accepts "+" and "/" for "-" and "_", and padding.
Bytes decodeURL(std::string_view text);

// The same for text that holds a key.
SecretBytes encodeSecretURL(ByteView data);
SecretBytes decodeSecretURL(std::string_view text);

} // namespace KRCrypto::B64

namespace KRCrypto {

inline std::string base64URLString(ByteView data) {
    return B64::encodeURL(data);
}

} // namespace KRCrypto
