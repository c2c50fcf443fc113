#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"
#include "KRCrypto/Sizes.hpp"

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace KRCrypto {

// Recognises the chunks of a file that was read before, so that no other content is sealed in their place:
// GMAC (NIST SP 800-38D) of each chunk, under a key drawn for this object that never leaves it. 16 bytes a
// chunk. One thread at a time until finished; matches() from any.
class ChunkDigests {
public:
    explicit ChunkDigests(std::int64_t bytesPerChunk); // throws SizeMismatch below 1

    ChunkDigests(const ChunkDigests&) = delete;
    ChunkDigests(ChunkDigests&&) noexcept;
    ChunkDigests& operator=(const ChunkDigests&) = delete;
    ChunkDigests& operator=(ChunkDigests&&) noexcept;
    ~ChunkDigests();

    // The plaintext from its beginning, in pieces of any size.
    void update(ByteView plain);

    // Nothing more follows. Of an empty file, one empty chunk was read.
    void finish();

    // Whether `plain` is what chunk `index` held; false for chunks there were none of.
    bool matches(std::int64_t index, ByteView plain) const;

private:
    using Tag = std::array<std::uint8_t, gcmTagSize>;
    class Running;

    void closeChunk();

    std::size_t chunkSize_;
    SecretBytes key_;
    std::unique_ptr<Running> running_; // the chunk that is being read, if any
    std::size_t inChunk_ = 0;
    std::vector<Tag> tags_;
};

} // namespace KRCrypto
