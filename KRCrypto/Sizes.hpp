#pragma once

#include <cstddef>
#include <cstdint>

namespace KRCrypto {

// First byte of every sealed box.
inline constexpr std::uint8_t keyVersion = 1;

// AES-256-GCM, in bytes.
inline constexpr std::size_t keySize = 32;
inline constexpr std::size_t gcmIVSize = 12;
inline constexpr std::size_t gcmTagSize = 16;

// Of a password, in bytes.
inline constexpr std::size_t saltSize = 16;

// What a sealed box adds to its plaintext: version, nonce, tag.
inline constexpr std::size_t sealedOverhead = 1 + gcmIVSize + gcmTagSize;

// Most plaintext bytes in one file chunk, and the bytes of that chunk once encrypted.
inline constexpr std::int64_t chunkSize = 10485760;
inline constexpr std::int64_t encChunkSize = chunkSize + static_cast<std::int64_t>(gcmTagSize);

// The chunk size callers pass.
constexpr std::int64_t effectiveChunkSize() noexcept {
    return chunkSize;
}

// Most chunks of one file.
inline constexpr std::int64_t maxParts = 10000;

} // namespace KRCrypto
