#include "KRCrypto/internal/ChunkCipher.hpp"

#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/KRCryptoError.hpp"

#include <algorithm>
#include <limits>

namespace KRCrypto::Internal {

namespace {

void putBigEndian(std::span<std::uint8_t, 4> out, std::uint32_t value) {
    for (std::size_t byte = 0; byte < out.size(); ++byte) {
        out[byte] = static_cast<std::uint8_t>(value >> (24 - 8 * byte));
    }
}

} // namespace

ChunkPosition::ChunkPosition(std::int64_t index, std::int64_t chunkCount)
    : index_(static_cast<std::uint32_t>(index)), count_(static_cast<std::uint32_t>(chunkCount)) {
    requireChunkCount(chunkCount);
    if (index < 0 || index >= chunkCount) {
        throw KRCryptoError(KRCryptoError::InvalidChunkIndex{});
    }
}

std::array<std::uint8_t, gcmIVSize> ChunkPosition::nonce() const {
    std::array<std::uint8_t, gcmIVSize> nonce{};
    putBigEndian(std::span(nonce).last<4>(), index_);
    return nonce;
}

std::array<std::uint8_t, 24> ChunkPosition::associatedData() const {
    static_assert(CryptoContext::chunk.size() + 8 == 24);
    std::array<std::uint8_t, 24> data{};
    std::ranges::copy(asBytes(CryptoContext::chunk), data.begin());
    putBigEndian(std::span(data).subspan<16, 4>(), index_);
    putBigEndian(std::span(data).subspan<20, 4>(), count_);
    return data;
}

void requireChunkCount(std::int64_t chunkCount) {
    if (chunkCount < 1 || chunkCount > std::numeric_limits<std::uint32_t>::max()) {
        throw KRCryptoError(KRCryptoError::InvalidChunkIndex{});
    }
}

} // namespace KRCrypto::Internal
