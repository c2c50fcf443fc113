#include "KRCrypto/FileChunkReader.hpp"

#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/SecretBytes.hpp"
#include "KRCrypto/internal/KeySize.hpp"
#include "KRCrypto/internal/SourceFile.hpp"

#include <algorithm>
#include <utility>

namespace KRCrypto {

namespace {

MutableBytes fitting(MutableBytes out, std::size_t size) {
    if (out.size() < size) {
        throw KRCryptoError(KRCryptoError::SizeMismatch{});
    }
    return out.first(size);
}

// Plaintext bytes of a chunk, once it is sure that it can be encrypted: before anything is read.
std::size_t encryptableSize(const FileChunkReader& reader, std::int64_t index, ByteView fk) {
    const std::size_t size = reader.plainSizeOf(index);
    Internal::requireKeySize(fk);
    if (std::cmp_greater(size, chunkSize)) {
        throw KRCryptoError(KRCryptoError::SizeMismatch{});
    }
    return size;
}

} // namespace

FileChunkReader::FileChunkReader(std::filesystem::path url, std::int64_t chunkSize)
    : url_(std::move(url)),
      plainSize_(Internal::sizeAttribute(url_)),
      chunkCount_(ChunkCrypto::chunkCount(plainSize_, chunkSize)),
      chunkSize_(chunkSize) {}

std::size_t FileChunkReader::plainSizeOf(std::int64_t index) const {
    if (index < 0 || index >= chunkCount_) {
        throw KRCryptoError(KRCryptoError::InvalidChunkIndex{});
    }
    return static_cast<std::size_t>(std::min(chunkSize_, plainSize_ - index * chunkSize_));
}

Bytes FileChunkReader::plain(std::int64_t index) const {
    Bytes out(plainSizeOf(index));
    plainInto(index, out);
    return out;
}

Bytes FileChunkReader::encrypted(std::int64_t index, ByteView fk) const {
    Bytes out(encryptableSize(*this, index, fk) + gcmTagSize);
    encryptedInto(index, fk, out);
    return out;
}

ByteView FileChunkReader::plainInto(std::int64_t index, MutableBytes out) const {
    const MutableBytes plain = fitting(out, plainSizeOf(index));
    Internal::SourceFile(url_).readExactlyAt(index * chunkSize_, plain);
    return plain;
}

ByteView FileChunkReader::encryptedInto(std::int64_t index, ByteView fk, MutableBytes out) const {
    const MutableBytes chunk = fitting(out, encryptableSize(*this, index, fk) + gcmTagSize);
    try {
        return ChunkCrypto::encryptChunkInto(fk, index, chunkCount_, plainInto(index, chunk), chunk);
    } catch (...) {
        wipe(chunk);
        throw;
    }
}

} // namespace KRCrypto
