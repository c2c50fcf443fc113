#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"
#include "KRCrypto/Sha256.hpp"

#include <string_view>

namespace KRCrypto {

// HMAC-SHA-256 (RFC 2104); any key length.
Digest hmacSHA256(ByteView key, ByteView data);

// HKDF-SHA-256 (RFC 5869). An empty salt stands for 32 zero bytes. At most 8160 bytes come out, and the
// info has at most 32768; more throws SizeMismatch.
SecretBytes hkdf(ByteView ikm, ByteView info, std::size_t length, ByteView salt = {});
SecretBytes hkdf(ByteView ikm, std::string_view info, std::size_t length, ByteView salt = {});

// A key from a parent key and a label: 32 bytes, empty salt.
SecretBytes subkey(ByteView parent, std::string_view label);

} // namespace KRCrypto
