#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/Sizes.hpp"

#include <cstdint>
#include <filesystem>

namespace KRCrypto {

// The chunks of a local file in any order, so that an interrupted upload goes on at any part. Keeps no file
// open between calls. A size that changed since it was made shows as FileChangedDuringRead only when a chunk
// comes short: callers compare the file's attributes. Const operations may be called from any thread.
class FileChunkReader {
public:
    // Takes the size from the path's attributes, whatever kind of file it names; reading anything but a
    // regular file fails later. Throws std::system_error, and SizeMismatch for a chunk size below 1.
    explicit FileChunkReader(std::filesystem::path url, std::int64_t chunkSize = KRCrypto::chunkSize);

    const std::filesystem::path& url() const noexcept { return url_; }

    std::int64_t plainSize() const noexcept { return plainSize_; } // when the reader was made

    std::int64_t chunkCount() const noexcept { return chunkCount_; }

    std::int64_t chunkSize() const noexcept { return chunkSize_; }

    // Plaintext bytes of one chunk. Throws InvalidChunkIndex.
    std::size_t plainSizeOf(std::int64_t index) const;

    // Throw InvalidChunkIndex, FileChangedDuringRead and std::system_error; `encrypted` as well what
    // ChunkCrypto::encryptChunk throws.
    Bytes plain(std::int64_t index) const;
    Bytes encrypted(std::int64_t index, ByteView fk) const;

    // Into memory the caller keeps; return the part of `out` that was written. An encrypted chunk takes 16
    // bytes more than its plaintext. Throw SizeMismatch when `out` is too small. When encrypting fails, `out`
    // holds nothing of the plaintext.
    ByteView plainInto(std::int64_t index, MutableBytes out) const;
    ByteView encryptedInto(std::int64_t index, ByteView fk, MutableBytes out) const;

private:
    std::filesystem::path url_;
    std::int64_t plainSize_;
    std::int64_t chunkCount_;
    std::int64_t chunkSize_;
};

} // namespace KRCrypto
