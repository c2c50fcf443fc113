#include "KorvaneCore/sync/ContentHash.hpp"

#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Sha256.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/OpenFile.hpp"

#include <algorithm>
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

[[noreturn]] void changed() {
    throw KRCrypto::KRCryptoError(KRCrypto::KRCryptoError::FileChangedDuringRead{});
}

} // namespace

asio::awaitable<std::string> contentHash(std::filesystem::path file, LocalStat stat) {
    const auto hashing = co_await offload([file, stat] {
        const auto size = static_cast<std::uint64_t>(stat.size);
        return std::make_shared<Hashing>(Hashing{
            OpenFile::forReading(file), size, 0, {}, std::vector<std::uint8_t>(std::min(size, bufferSize))});
    });
    for (bool more = true; more;)
        more = co_await offload([hashing, file, stat] {
            try {
                return hashing->nextPiece();
            } catch (const FileError&) {
                if (localStat(file) != stat)
                    changed(); // shorter than it was
                throw;
            }
        });
    const auto after = co_await offload([file] { return localStat(file); });
    if (after != stat)
        changed();
    co_return KRCrypto::hexString(hashing->hasher.digest());
}

} // namespace Korvane
