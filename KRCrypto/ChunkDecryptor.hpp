#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"
#include "KRCrypto/Sha256.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace KRCrypto {

// Decrypts the chunks of one file, each once and in order, and checks the whole at the end. After a failure
// it is discarded. One thread at a time.
class ChunkDecryptor {
public:
    // Throws InvalidChunkIndex unless the count is between 1 and 2^32 - 1. The key's length is checked with
    // the chunks.
    ChunkDecryptor(ByteView fk, std::int64_t chunkCount);

    std::int64_t chunkCount() const noexcept { return chunkCount_; }

    std::int64_t nextIndex() const noexcept { return nextIndex_; } // of the chunk that must come next

    std::int64_t plainBytes() const noexcept { return plainBytes_; } // produced so far

    // The plaintext of the chunk that must come next; another index throws InvalidChunkIndex. Else as
    // ChunkCrypto::decryptChunk and decryptChunkInto.
    Bytes decrypt(std::int64_t index, ByteView cipher);
    ByteView decryptInto(std::int64_t index, ByteView cipher, MutableBytes out);

    // SHA-256 of the whole plaintext as lower-case hex. Throws InvalidChunkIndex while chunks are missing and
    // HashMismatch when another hash (hex of either case) was expected.
    std::string finish(std::optional<std::string_view> expectedSHA256 = std::nullopt) const;

private:
    void requireNext(std::int64_t index) const;
    void account(ByteView plain);

    SecretBytes fk_;
    std::int64_t chunkCount_;
    std::int64_t nextIndex_ = 0;
    std::int64_t plainBytes_ = 0;
    Sha256 hasher_;
};

} // namespace KRCrypto
