#include "KRCrypto/ChunkCrypto.hpp"

#include "KRCrypto/ChunkDecryptor.hpp"
#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Random.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "KRCrypto/internal/AesGcm.hpp"
#include "KRCrypto/internal/ChunkCipher.hpp"
#include "KRCrypto/internal/KeySize.hpp"
#include "KRCrypto/internal/SourceFile.hpp"

#include <algorithm>
#include <limits>
#include <system_error>

namespace KRCrypto::ChunkCrypto {

namespace {

using Internal::AesGcm;
using Internal::ChunkPosition;

constexpr auto tagSize = static_cast<std::int64_t>(gcmTagSize);

// What is read, hashed and encrypted at a time: small enough to stay in the processor's cache in between.
constexpr std::size_t blockSize = 262144;

void requireSize(bool fits) {
    if (!fits) {
        throw KRCryptoError(KRCryptoError::SizeMismatch{});
    }
}

void throwIfStopped(const std::stop_token& stop) {
    if (stop.stop_requested()) {
        throw std::system_error(std::make_error_code(std::errc::operation_canceled));
    }
}

std::int64_t checkedEncryptedSize(std::int64_t plainSize, std::int64_t count) {
    std::int64_t size = 0;
    requireSize(!__builtin_mul_overflow(count, tagSize, &size) &&
                !__builtin_add_overflow(size, plainSize, &size));
    return size;
}

// Reads one chunk block by block, each hashed and encrypted while it is at hand. `out` has room for the tag.
void encryptFromFile(const Internal::SourceFile& file, std::int64_t offset, const ChunkPosition& position,
                     AesGcm& cipher, Sha256& hasher, MutableBytes block, MutableBytes out) {
    cipher.startSeal(position.nonce(), position.associatedData());
    MutableBytes rest = out.first(out.size() - gcmTagSize);
    while (!rest.empty()) {
        const MutableBytes plain = block.first(std::min(block.size(), rest.size()));
        file.readExactlyAt(offset, plain);
        hasher.update(plain);
        cipher.update(plain, rest.data());
        rest = rest.subspan(plain.size());
        offset += static_cast<std::int64_t>(plain.size());
    }
    cipher.finishSeal(out.last<gcmTagSize>());
}

} // namespace

SecretBytes generateFileKey() {
    return randomSecret(keySize);
}

std::int64_t chunkCount(std::int64_t forPlainSize, std::int64_t chunkSize) {
    requireSize(chunkSize > 0);
    return forPlainSize < 1 ? 1 : (forPlainSize - 1) / chunkSize + 1;
}

std::int64_t encryptedSize(std::int64_t forPlainSize, std::int64_t chunkSize) {
    return checkedEncryptedSize(forPlainSize, chunkCount(forPlainSize, chunkSize));
}

ByteRange encryptedRange(std::int64_t index, std::int64_t chunkCount, std::int64_t encryptedSize,
                         std::int64_t chunkSize) {
    requireSize(chunkSize > 0);
    if (index < 0 || index >= chunkCount) {
        throw KRCryptoError(KRCryptoError::InvalidChunkIndex{});
    }
    std::int64_t stride = 0;
    std::int64_t start = 0;
    requireSize(!__builtin_add_overflow(chunkSize, tagSize, &stride) &&
                !__builtin_mul_overflow(index, stride, &start));
    const std::int64_t left = encryptedSize > start ? encryptedSize - start : 0;
    return {.start = start, .end = start + std::min(stride, left)};
}

Bytes encryptChunk(ByteView fk, std::int64_t index, std::int64_t chunkCount, ByteView plain) {
    // Sizes are checked before memory is taken for them.
    Internal::requireKeySize(fk);
    const ChunkPosition inRange(index, chunkCount);
    requireSize(std::cmp_less_equal(plain.size(), chunkSize));
    Bytes out(plain.size() + gcmTagSize);
    encryptChunkInto(fk, index, chunkCount, plain, out);
    return out;
}

Bytes decryptChunk(ByteView fk, std::int64_t index, std::int64_t chunkCount, ByteView cipher) {
    Internal::requireKeySize(fk);
    const ChunkPosition inRange(index, chunkCount);
    requireSize(std::cmp_less_equal(cipher.size(), encChunkSize));
    Bytes out(cipher.size() - std::min(cipher.size(), gcmTagSize));
    decryptChunkInto(fk, index, chunkCount, cipher, out);
    return out;
}

ByteView encryptChunkInto(ByteView fk, std::int64_t index, std::int64_t chunkCount, ByteView plain,
                          MutableBytes out) {
    Internal::requireKeySize(fk);
    const ChunkPosition position(index, chunkCount);
    requireSize(std::cmp_less_equal(plain.size(), chunkSize) && out.size() >= plain.size() + gcmTagSize);
    const MutableBytes chunk = out.first(plain.size() + gcmTagSize);
    AesGcm::sealOnce(fk, position.nonce(), position.associatedData(), plain, chunk.data(),
                     chunk.last<gcmTagSize>());
    return chunk;
}

ByteView decryptChunkInto(ByteView fk, std::int64_t index, std::int64_t chunkCount, ByteView cipher,
                          MutableBytes out) {
    Internal::requireKeySize(fk);
    const ChunkPosition position(index, chunkCount);
    requireSize(std::cmp_less_equal(cipher.size(), encChunkSize));
    if (cipher.size() < gcmTagSize) {
        throw KRCryptoError(KRCryptoError::MalformedSealed{});
    }
    const ByteView ciphertext = cipher.first(cipher.size() - gcmTagSize);
    requireSize(out.size() >= ciphertext.size());
    const MutableBytes plain = out.first(ciphertext.size());
    AesGcm::openOnce(fk, position.nonce(), position.associatedData(), ciphertext, cipher.last<gcmTagSize>(),
                     plain);
    return plain;
}

EncryptSummary encryptFile(const std::filesystem::path& at, ByteView fk, std::int64_t chunkSize,
                           const EncryptedChunkSink& sink, const std::stop_token& stop) {
    const Internal::SourceFile file(at);
    const std::int64_t plainSize = file.size();
    const std::int64_t count = chunkCount(plainSize, chunkSize);
    const auto largest = static_cast<std::size_t>(std::min(chunkSize, plainSize));
    requireSize(count <= maxParts && std::cmp_less_equal(largest, KRCrypto::chunkSize));
    AesGcm cipher(fk);

    Sha256 hasher;
    Bytes block(std::min(blockSize, largest));
    Bytes encrypted(largest + gcmTagSize);
    for (std::int64_t index = 0; index < count; ++index) {
        throwIfStopped(stop);
        const std::int64_t offset = index * chunkSize;
        const auto size = static_cast<std::size_t>(std::min(chunkSize, plainSize - offset)) + gcmTagSize;
        const MutableBytes chunk = MutableBytes(encrypted).first(size);
        encryptFromFile(file, offset, ChunkPosition(index, count), cipher, hasher, block, chunk);
        sink(index, chunk);
    }
    std::array<std::uint8_t, 1> beyond{};
    if (file.readAt(plainSize, beyond) != 0) {
        throw KRCryptoError(KRCryptoError::FileChangedDuringRead{});
    }
    return {.sha256 = hexString(hasher.digest()),
            .plainSize = plainSize,
            .chunkCount = count,
            .encryptedSize = checkedEncryptedSize(plainSize, count)};
}

std::string decryptChunks(ByteView fk, std::int64_t chunkCount,
                          std::optional<std::string_view> expectedSHA256, const EncryptedChunkSource& source,
                          const PlainChunkSink& sink) {
    return decryptChunks(
        fk, chunkCount, expectedSHA256,
        EncryptedChunkFiller([&source](std::int64_t index, Bytes& chunk) { chunk = source(index); }), sink);
}

std::string decryptChunks(ByteView fk, std::int64_t chunkCount,
                          std::optional<std::string_view> expectedSHA256, const EncryptedChunkFiller& filler,
                          const PlainChunkSink& sink) {
    ChunkDecryptor decryptor(fk, chunkCount);
    Bytes chunk;
    for (std::int64_t index = 0; index < chunkCount; ++index) {
        filler(index, chunk);
        sink(decryptor.decryptInto(index, chunk, chunk)); // in place: one chunk is held, not two
    }
    return decryptor.finish(expectedSHA256);
}

std::pair<Digest, std::int64_t> sha256OfFile(const std::filesystem::path& at, std::size_t bufferSize,
                                             const std::stop_token& stop) {
    requireSize(bufferSize > 0);
    const Internal::SourceFile file(at);
    Sha256 hasher;
    Bytes buffer(bufferSize);
    std::int64_t size = 0;
    std::size_t got = bufferSize;
    while (got == bufferSize) {
        throwIfStopped(stop);
        got = file.readAt(size, buffer);
        hasher.update(ByteView(buffer).first(got));
        size += static_cast<std::int64_t>(got);
    }
    return {hasher.digest(), size};
}

Bytes sealThumbnail(ByteView fk, ByteView bytes) {
    return seal(fk, bytes, CryptoContext::thumb);
}

Bytes openThumbnail(ByteView fk, ByteView sealed) {
    return open(fk, sealed, CryptoContext::thumb);
}

} // namespace KRCrypto::ChunkCrypto
