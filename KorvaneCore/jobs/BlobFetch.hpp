#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/EntryMeta.hpp"
#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/api/BlobTransport.hpp"
#include "KorvaneCore/platform/PartialFile.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Korvane {

/// A blob on its way into a file, once: while one chunk is opened and written, the next is fetched.
class BlobFetch {
public:
    struct Blob {
        KRCrypto::SecretBytes fileKey;
        std::int64_t chunkCount = 0;
        std::int64_t encryptedSize = 0; ///< bytes
        std::int64_t chunkSize = 0;     ///< plaintext bytes of a full chunk
    };

    /// Storage URLs expire: `freshURL` is asked for another one, once.
    using FreshURL = std::function<asio::awaitable<std::string>()>;

    BlobFetch(std::shared_ptr<BlobTransport> transport, Blob blob, std::string url, FreshURL freshURL);

    /// Fills the file and finishes it, with the modification time that `meta` has; its hash is the content's,
    /// or this throws. `progress` is told how many plaintext bytes are written. On a strand. Throws as
    /// BlobTransport and KRCrypto::ChunkDecryptor do, and FileError.
    asio::awaitable<void> into(PartialFile& file, KRCrypto::FileMeta meta,
                               std::function<void(std::int64_t)> progress);

private:
    asio::awaitable<void> fetchChunk(std::int64_t index, KRCrypto::Bytes& buffer);

    const std::shared_ptr<BlobTransport> transport_;
    const Blob blob_;
    std::string url_;
    const FreshURL freshURL_;
    bool renewed_ = false;
};

} // namespace Korvane
