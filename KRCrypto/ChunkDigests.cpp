#include "KRCrypto/ChunkDigests.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Random.hpp"
#include "KRCrypto/internal/AesGcm.hpp"

#include <algorithm>

namespace KRCrypto {

namespace {

using Internal::AesGcm;

// The tags stay in this process, so that a nonce may come again: what they are compared with has the same
// one.
std::array<std::uint8_t, gcmIVSize> nonceOf(std::uint64_t index) {
    std::array<std::uint8_t, gcmIVSize> nonce{};
    for (auto byte = nonce.rbegin(); index != 0; ++byte, index >>= 8U) {
        *byte = static_cast<std::uint8_t>(index);
    }
    return nonce;
}

} // namespace

class ChunkDigests::Running {
public:
    explicit Running(ByteView key) : cipher_(key) {}

    void start(std::uint64_t index) { cipher_.startSeal(nonceOf(index), {}); }

    void update(ByteView plain) { cipher_.update(plain, nullptr); }

    Tag finish() {
        Tag tag{};
        cipher_.finishSeal(tag);
        return tag;
    }

private:
    AesGcm cipher_;
};

ChunkDigests::ChunkDigests(std::int64_t bytesPerChunk) : chunkSize_(static_cast<std::size_t>(bytesPerChunk)) {
    if (bytesPerChunk < 1) {
        throw KRCryptoError(KRCryptoError::SizeMismatch{});
    }
    key_ = randomSecret(keySize);
    running_ = std::make_unique<Running>(key_);
    running_->start(0);
}

ChunkDigests::ChunkDigests(ChunkDigests&&) noexcept = default;
ChunkDigests& ChunkDigests::operator=(ChunkDigests&&) noexcept = default;
ChunkDigests::~ChunkDigests() = default;

void ChunkDigests::update(ByteView plain) {
    while (!plain.empty()) {
        if (inChunk_ == chunkSize_) {
            closeChunk();
            running_->start(tags_.size());
        }
        const auto piece = plain.first(std::min(plain.size(), chunkSize_ - inChunk_));
        running_->update(piece);
        inChunk_ += piece.size();
        plain = plain.subspan(piece.size());
    }
}

void ChunkDigests::finish() {
    closeChunk();
    running_.reset();
}

void ChunkDigests::closeChunk() {
    tags_.push_back(running_->finish());
    inChunk_ = 0;
}

bool ChunkDigests::matches(std::int64_t index, ByteView plain) const {
    if (index < 0 || index >= std::ssize(tags_)) {
        return false;
    }
    Tag tag{};
    AesGcm::sealOnce(key_, nonceOf(static_cast<std::uint64_t>(index)), plain, {}, nullptr, tag);
    return tag == tags_[static_cast<std::size_t>(index)];
}

} // namespace KRCrypto
