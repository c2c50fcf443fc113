#include "KorvaneCore/jobs/SourceContent.hpp"

#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Sha256.hpp"
#include "KorvaneCore/jobs/Unchanged.hpp"
#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/OpenFile.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace Korvane {

namespace {

constexpr std::uint64_t bufferSize = std::uint64_t{256} << 10;
constexpr std::uint64_t pieceSize = std::uint64_t{64} << 20;

/// How long the file may still change without a trace: two writes within one tick of the clock that dates
/// files look alike. Kernels tick up to every 10 ms; some file systems keep whole seconds, FAT every other
/// one.
std::chrono::duration<double> settlingTime(const LocalStat& stat) {
    using Seconds = std::chrono::duration<double>;
    const bool mayBeCoarse = std::floor(stat.mtime) == stat.mtime;
    const Seconds tick(mayBeCoarse ? 2.0 : 0.02);
    const Seconds age = std::chrono::system_clock::now().time_since_epoch() - Seconds(stat.mtime);
    return age.count() < 0 ? Seconds(0) : std::max(tick - age, Seconds(0));
}

asio::awaitable<void> settle(const LocalStat& stat) {
    const auto time = settlingTime(stat);
    if (time.count() > 0)
        co_await systemClock()->sleep(std::chrono::ceil<std::chrono::milliseconds>(time));
}

} // namespace

/// The reading of a file, a piece a call.
class SourceContent::Reading {
public:
    Reading(std::filesystem::path file, LocalStat stat, std::int64_t chunkSize)
        : path_(std::move(file)),
          stat_(stat),
          chunkSize_(chunkSize),
          digests_(chunkSize),
          buffer_(std::min(size(), bufferSize)) {}

    /// The content once the file has been read to its end; null before.
    std::shared_ptr<const SourceContent> next() {
        auto content = whileUnchanged(path_, stat_, [this] { return nextPiece(); });
        if (content)
            content->requireUnchanged();
        return content;
    }

private:
    [[nodiscard]] std::uint64_t size() const { return static_cast<std::uint64_t>(stat_.size); }

    std::shared_ptr<const SourceContent> nextPiece() {
        if (!file_)
            file_ = OpenFile::forReading(path_);
        for (const auto end = std::min(size(), offset_ + pieceSize); offset_ < end;) {
            const auto part = std::span(buffer_).first(std::min(bufferSize, end - offset_));
            file_->readAt(offset_, part);
            hasher_.update(part);
            digests_.update(part);
            offset_ += part.size();
        }
        if (offset_ < size())
            return nullptr;
        digests_.finish();
        return std::shared_ptr<const SourceContent>(new SourceContent(
            path_, stat_, KRCrypto::hexString(hasher_.digest()), std::move(digests_), chunkSize_));
    }

    std::filesystem::path path_;
    LocalStat stat_;
    std::int64_t chunkSize_;
    std::optional<OpenFile> file_; // from the first piece on
    std::uint64_t offset_ = 0;
    KRCrypto::Sha256 hasher_;
    KRCrypto::ChunkDigests digests_;
    std::vector<std::uint8_t> buffer_;
};

SourceContent::SourceContent(std::filesystem::path file, LocalStat stat, std::string sha256,
                             KRCrypto::ChunkDigests digests, std::int64_t chunkSize)
    : file_(std::move(file)),
      stat_(stat),
      sha256_(std::move(sha256)),
      digests_(std::move(digests)),
      reader_(file_, chunkSize),
      chunkCount_(KRCrypto::ChunkCrypto::chunkCount(stat_.size, chunkSize)) {}

asio::awaitable<std::shared_ptr<const SourceContent>>
SourceContent::read(std::filesystem::path file, LocalStat stat, std::int64_t chunkSize) {
    co_await settle(stat);
    const auto reading = std::make_shared<Reading>(std::move(file), stat, chunkSize);
    for (;;)
        if (auto content = co_await offload([reading] { return reading->next(); }))
            co_return content;
}

KRCrypto::ByteView SourceContent::sealed(std::int64_t chunk, KRCrypto::ByteView fileKey,
                                         KRCrypto::MutableBytes buffer) const {
    try {
        const auto plain = whileUnchanged(file_, stat_, [&] { return reader_.plainInto(chunk, buffer); });
        if (!digests_.matches(chunk, plain))
            throw KRCrypto::KRCryptoError(KRCrypto::KRCryptoError::FileChangedDuringRead{});
        return KRCrypto::ChunkCrypto::encryptChunkInto(fileKey, chunk, chunkCount_, plain, buffer);
    } catch (...) {
        KRCrypto::wipe(buffer);
        throw;
    }
}

void SourceContent::requireUnchanged() const {
    Korvane::requireUnchanged(file_, stat_);
}

} // namespace Korvane
