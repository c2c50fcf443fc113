#pragma once

#include "KRCrypto/internal/AesGcm.hpp"

#include <array>
#include <cstdint>

namespace KRCrypto::Internal {

// Where a chunk stands in its file; the source of its nonce and associated data.
class ChunkPosition {
public:
    // Throws InvalidChunkIndex unless 0 ≤ index < chunkCount < 2^32.
    ChunkPosition(std::int64_t index, std::int64_t chunkCount);

    std::array<std::uint8_t, gcmIVSize> nonce() const;
    std::array<std::uint8_t, 24> associatedData() const;

private:
    std::uint32_t index_;
    std::uint32_t count_;
};

// Throws InvalidChunkIndex unless 0 < chunkCount < 2^32.
void requireChunkCount(std::int64_t chunkCount);

} // namespace KRCrypto::Internal
