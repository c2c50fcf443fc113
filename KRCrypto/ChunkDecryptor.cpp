#include "KRCrypto/ChunkDecryptor.hpp"

#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/UnicodeText.hpp"
#include "KRCrypto/internal/ChunkCipher.hpp"

namespace KRCrypto {

namespace {

bool sameHash(std::string_view expected, std::string_view actual) {
    return isUTF8(expected) && toLower(expected) == actual;
}

} // namespace

ChunkDecryptor::ChunkDecryptor(ByteView fk, std::int64_t chunkCount)
    : fk_(SecretBytes::copyOf(fk)), chunkCount_(chunkCount) {
    Internal::requireChunkCount(chunkCount);
}

Bytes ChunkDecryptor::decrypt(std::int64_t index, ByteView cipher) {
    requireNext(index);
    Bytes plain = ChunkCrypto::decryptChunk(fk_, index, chunkCount_, cipher);
    account(plain);
    return plain;
}

ByteView ChunkDecryptor::decryptInto(std::int64_t index, ByteView cipher, MutableBytes out) {
    requireNext(index);
    const ByteView plain = ChunkCrypto::decryptChunkInto(fk_, index, chunkCount_, cipher, out);
    account(plain);
    return plain;
}

std::string ChunkDecryptor::finish(std::optional<std::string_view> expectedSHA256) const {
    requireNext(chunkCount_);
    std::string actual = hexString(hasher_.digest());
    if (expectedSHA256 && !sameHash(*expectedSHA256, actual)) {
        throw KRCryptoError(KRCryptoError::HashMismatch{.expected = std::string(*expectedSHA256),
                                                        .actual = std::move(actual)});
    }
    return actual;
}

void ChunkDecryptor::requireNext(std::int64_t index) const {
    if (index != nextIndex_) {
        throw KRCryptoError(KRCryptoError::InvalidChunkIndex{});
    }
}

void ChunkDecryptor::account(ByteView plain) {
    hasher_.update(plain);
    plainBytes_ += static_cast<std::int64_t>(plain.size());
    ++nextIndex_;
}

} // namespace KRCrypto
