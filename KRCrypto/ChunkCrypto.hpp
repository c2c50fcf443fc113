#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"
#include "KRCrypto/Sha256.hpp"
#include "KRCrypto/Sizes.hpp"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>

namespace KRCrypto {

// What encrypting a whole file found and made.
struct EncryptSummary {
    std::string sha256; // lower-case hex, of the whole plaintext
    std::int64_t plainSize = 0;
    std::int64_t chunkCount = 0;
    std::int64_t encryptedSize = 0;

    bool operator==(const EncryptSummary&) const = default;
};

// Bytes `start` up to, not including, `end`.
struct ByteRange {
    std::int64_t start = 0;
    std::int64_t end = 0;

    bool operator==(const ByteRange&) const = default;
};

// Both views hold for the duration of the call. A sink may throw to abort.
using EncryptedChunkSink = std::function<void(std::int64_t index, ByteView encryptedChunk)>;
using PlainChunkSink = std::function<void(ByteView plain)>;

// Returns encrypted chunk `index`.
using EncryptedChunkSource = std::function<Bytes(std::int64_t index)>;

// Puts it into `chunk`, resizing it as needed; the same buffer comes again for every chunk.
using EncryptedChunkFiller = std::function<void(std::int64_t index, Bytes& chunk)>;

// Files are encrypted in chunks under a key of their own, each chunk with AES-256-GCM:
//
//   encrypted chunk   ciphertext (as long as the plaintext, at most chunkSize), then the 16-byte tag
//   nonce             8 zero bytes, then the index as 32-bit big-endian; not stored
//   associated data   "korvane/v1/chunk", index and chunk count as 32-bit big-endian; not stored
//
// Nonces repeat with the key, so a file key is never used for two contents. Every chunk is bound to its place
// and to the number of chunks: dropped, swapped and foreign chunks do not open. Sizes are in bytes. A chunk
// size other than `chunkSize` is for tests; below 1 it throws SizeMismatch, and what has to be encrypted in
// one chunk throws it above `chunkSize` bytes. File errors are std::system_error.
namespace ChunkCrypto {

SecretBytes generateFileKey();

// 1 for an empty file.
std::int64_t chunkCount(std::int64_t forPlainSize, std::int64_t chunkSize = KRCrypto::chunkSize);

// Throws SizeMismatch when it exceeds 64 bits.
std::int64_t encryptedSize(std::int64_t forPlainSize, std::int64_t chunkSize = KRCrypto::chunkSize);

// Where chunk `index` lies in the blob; empty when the blob ends before it. Throws InvalidChunkIndex unless
// 0 ≤ index < chunkCount, and SizeMismatch when the place exceeds 64 bits.
ByteRange encryptedRange(std::int64_t index, std::int64_t chunkCount, std::int64_t encryptedSize,
                         std::int64_t chunkSize = KRCrypto::chunkSize);

// Throw InvalidKeyLength, InvalidChunkIndex (also for a count beyond 32 bits), SizeMismatch; decrypting
// further MalformedSealed below 16 bytes and AuthenticationFailed.
Bytes encryptChunk(ByteView fk, std::int64_t index, std::int64_t chunkCount, ByteView plain);
Bytes decryptChunk(ByteView fk, std::int64_t index, std::int64_t chunkCount, ByteView cipher);

// Into memory the caller keeps; returns the part of `out` that was written. `out` may begin where the input
// begins. Throw SizeMismatch when `out` is too small. A chunk that does not open leaves nothing of its
// plaintext in `out`.
ByteView encryptChunkInto(ByteView fk, std::int64_t index, std::int64_t chunkCount, ByteView plain,
                          MutableBytes out);
ByteView decryptChunkInto(ByteView fk, std::int64_t index, std::int64_t chunkCount, ByteView cipher,
                          MutableBytes out);

// Encrypts a file chunk by chunk, in order. Holds one encrypted chunk and a small part of its plaintext.
// Opens the file before it looks at anything else. Throws FileChangedDuringRead when the file shrinks or
// grows meanwhile, SizeMismatch before reading when it takes more than `maxParts` chunks, InvalidKeyLength,
// std::system_error with std::errc::operation_canceled when stopped, and what the sink throws.
EncryptSummary encryptFile(const std::filesystem::path& at, ByteView fk, std::int64_t chunkSize,
                           const EncryptedChunkSink& sink, const std::stop_token& stop = {});

// Decrypts all chunks, in order, and compares the hash; throws what ChunkDecryptor throws, and what source
// and sink throw. Returns the plaintext's SHA-256 as lower-case hex. The sink has seen the plaintext before
// the hash is known.
std::string decryptChunks(ByteView fk, std::int64_t chunkCount,
                          std::optional<std::string_view> expectedSHA256, const EncryptedChunkSource& source,
                          const PlainChunkSink& sink);
std::string decryptChunks(ByteView fk, std::int64_t chunkCount,
                          std::optional<std::string_view> expectedSHA256, const EncryptedChunkFiller& filler,
                          const PlainChunkSink& sink);

// Hash and size of a file, read through a buffer of `bufferSize` bytes (at least 1, else SizeMismatch).
std::pair<Digest, std::int64_t> sha256OfFile(const std::filesystem::path& at, std::size_t bufferSize = 262144,
                                             const std::stop_token& stop = {});

// Sealed boxes under the file key.
Bytes sealThumbnail(ByteView fk, ByteView bytes);
Bytes openThumbnail(ByteView fk, ByteView sealed);

} // namespace ChunkCrypto

} // namespace KRCrypto
