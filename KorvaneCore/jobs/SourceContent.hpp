#pragma once

#include "KRCrypto/ChunkDigests.hpp"
#include "KRCrypto/FileChunkReader.hpp"
#include "KorvaneCore/platform/Async.hpp"
#include "KorvaneCore/queue/LocalStat.hpp"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace Korvane {

/// The content of a local file as it was when it was hashed. What is sealed from it is that content or
/// nothing, even where a change leaves size and date as they were. Blocking, but for read(); callable from
/// any thread.
class SourceContent {
public:
    /// Reads a regular file, on worker threads and a piece at a time, so that a cancelled caller waits for
    /// one piece only. `stat` is what the file looked like before: throws KRCryptoError
    /// (FileChangedDuringRead) when it is not that file any more at the end, or gone; FileError when it
    /// cannot be read. Whatever is written later changes `stat`: a file written a moment ago is waited for.
    static asio::awaitable<std::shared_ptr<const SourceContent>>
    read(std::filesystem::path file, LocalStat stat, std::int64_t chunkSize = KRCrypto::chunkSize);

    [[nodiscard]] const std::filesystem::path& file() const noexcept { return file_; }

    [[nodiscard]] const LocalStat& stat() const noexcept { return stat_; }

    /// In lower-case hex.
    [[nodiscard]] const std::string& sha256() const noexcept { return sha256_; }

    /// In bytes. Throws KRCryptoError (InvalidChunkIndex).
    [[nodiscard]] std::size_t sizeOf(std::int64_t chunk) const { return reader_.plainSizeOf(chunk); }

    /// The chunk, encrypted, in `buffer`, which has room for it. Throws KRCryptoError (FileChangedDuringRead)
    /// when the file does not hold it any more, and what reading and encrypting throw.
    KRCrypto::ByteView sealed(std::int64_t chunk, KRCrypto::ByteView fileKey,
                              KRCrypto::MutableBytes buffer) const;

    /// Throws KRCryptoError (FileChangedDuringRead) when the file looks like another one.
    void requireUnchanged() const;

private:
    class Reading;

    SourceContent(std::filesystem::path file, LocalStat stat, std::string sha256,
                  KRCrypto::ChunkDigests digests, std::int64_t chunkSize);

    std::filesystem::path file_;
    LocalStat stat_;
    std::string sha256_;
    KRCrypto::ChunkDigests digests_;
    KRCrypto::FileChunkReader reader_;
    std::int64_t chunkCount_;
};

} // namespace Korvane
