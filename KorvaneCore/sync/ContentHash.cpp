#include "KorvaneCore/sync/ContentHash.hpp"

#include "KRCrypto/Hex.hpp"
#include "KRCrypto/Sha256.hpp"
#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/OpenFile.hpp"
#include "KorvaneCore/sync/Unchanged.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
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
    std::vector<std::uint8_t> buffer;

    /// Whether there is more.
    bool nextPiece() {
        for (const auto end = std::min(size, offset + pieceSize); offset < end;) {
            const auto length = std::min(bufferSize, end - offset);
            const auto part = std::span(buffer).first(length);
            file.readAt(offset, part);
            hasher.update(part);
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

asio::awaitable<std::string> contentHash(std::filesystem::path file, LocalStat stat) {
    co_await settle(stat);
    const auto hashing = co_await offload([file, stat] {
        return whileUnchanged(file, stat, [&] {
            const auto size = static_cast<std::uint64_t>(stat.size);
            return std::make_shared<Hashing>(Hashing{OpenFile::forReading(file),
                                                     size,
                                                     0,
                                                     {},
                                                     std::vector<std::uint8_t>(std::min(size, bufferSize))});
        });
    });
    for (bool more = true; more;)
        more = co_await offload(
            [=] { return whileUnchanged(file, stat, [&] { return hashing->nextPiece(); }); });
    co_await offload([=] {
        requireUnchanged(file, stat);
        return true;
    });
    co_return KRCrypto::hexString(hashing->hasher.digest());
}

} // namespace Korvane
