#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace KRCrypto {

// Bytes that are not secret: sealed boxes, chunks, public keys, salts. Secrets live in SecretBytes.
using Bytes = std::vector<std::uint8_t>;

// Views borrow; whoever passes one keeps the bytes alive for the call.
using ByteView = std::span<const std::uint8_t>;
using MutableBytes = std::span<std::uint8_t>;

// The UTF-8 bytes of a text, as they lie.
inline ByteView asBytes(std::string_view text) noexcept {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// Bytes read as text; whether they are UTF-8 is the reader's business.
inline std::string_view asText(ByteView bytes) noexcept {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace KRCrypto
