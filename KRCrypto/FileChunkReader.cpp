#include "KRCrypto/FileChunkReader.hpp"

#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/internal/SourceFile.hpp"

#include <algorithm>
#include <utility>

namespace KRCrypto {

FileChunkReader::FileChunkReader(std::filesystem::path url, std::int64_t chunkSize)
    : url_(std::move(url)),
      plainSize_(static_cast<std::int64_t>(std::filesystem::file_size(url_))),
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
    Bytes out(plainSizeOf(index) + gcmTagSize);
    encryptedInto(index, fk, out);
    return out;
}

ByteView FileChunkReader::plainInto(std::int64_t index, MutableBytes out) const {
    const std::size_t size = plainSizeOf(index);
    if (out.size() < size) {
        throw KRCryptoError(KRCryptoError::SizeMismatch{});
    }
    const MutableBytes plain = out.first(size);
    Internal::SourceFile(url_).readExactlyAt(index * chunkSize_, plain);
    return plain;
}

ByteView FileChunkReader::encryptedInto(std::int64_t index, ByteView fk, MutableBytes out) const {
    return ChunkCrypto::encryptChunkInto(fk, index, chunkCount_, plainInto(index, out), out);
}

} // namespace KRCrypto
