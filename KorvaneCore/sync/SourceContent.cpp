#include "KorvaneCore/sync/SourceContent.hpp"

#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Sha256.hpp"
#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/OpenFile.hpp"
#include "KorvaneCore/sync/Unchanged.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>
#include <vector>

namespace Korvane {

namespace {

constexpr std::uint64_t bufferSize = std::uint64_t{256} << 10;
constexpr std::uint64_t pieceSize = std::uint64_t{64} << 20;

struct Hashing {
    OpenFile file;
    std::uint64_t size;
    std::uint64_t offset = 0;
    KRCrypto::Sha256 hasher;
    KRCrypto::ChunkDigests digests;
    std::vector<std::uint8_t> buffer;

    /// Whether there is more.
    bool nextPiece() {
        for (const auto end = std::min(size, offset + pieceSize); offset < end;) {
            const auto length = std::min(bufferSize, end - offset);
            const auto part = std::span(buffer).first(length);
            file.readAt(offset, part);
            hasher.update(part);
            digests.update(part);
            offset += length;
        }
        return offset < size;
    }
};

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
    const auto hashing = co_await offload([=] {
        return whileUnchanged(file, stat, [&] {
            const auto size = static_cast<std::uint64_t>(stat.size);
            return std::make_shared<Hashing>(Hashing{OpenFile::forReading(file),
                                                     size,
                                                     0,
                                                     {},
                                                     KRCrypto::ChunkDigests(chunkSize),
                                                     std::vector<std::uint8_t>(std::min(size, bufferSize))});
        });
    });
    for (bool more = true; more;)
        more = co_await offload(
            [=] { return whileUnchanged(file, stat, [&] { return hashing->nextPiece(); }); });
    co_return co_await offload([=] {
        hashing->digests.finish();
        const auto content = whileUnchanged(file, stat, [&] {
            return std::shared_ptr<const SourceContent>(
                new SourceContent(file, stat, KRCrypto::hexString(hashing->hasher.digest()),
                                  std::move(hashing->digests), chunkSize));
        });
        content->requireUnchanged();
        return content;
    });
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
