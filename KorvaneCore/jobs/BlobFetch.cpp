#include "KorvaneCore/jobs/BlobFetch.hpp"

#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/ChunkDecryptor.hpp"
#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/jobs/Both.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Offload.hpp"

#include <array>
#include <utility>

namespace Korvane {

BlobFetch::BlobFetch(std::shared_ptr<BlobTransport> transport, Blob blob, std::string url, FreshURL freshURL)
    : transport_(std::move(transport)),
      blob_(std::move(blob)),
      url_(std::move(url)),
      freshURL_(std::move(freshURL)) {}

asio::awaitable<void> BlobFetch::into(PartialFile& file, KRCrypto::FileMeta meta,
                                      std::function<void(std::int64_t)> progress) {
    KRCrypto::ChunkDecryptor decryptor(blob_.fileKey, blob_.chunkCount);
    std::array<KRCrypto::Bytes, 2> buffers;
    const auto bufferOf = [&](std::int64_t index) -> KRCrypto::Bytes& {
        return buffers[static_cast<std::size_t>(index % 2)];
    };
    const auto write = [&](std::int64_t index) -> asio::awaitable<void> {
        co_await offload([&, index] {
            auto& buffer = bufferOf(index);
            file.append(decryptor.decryptInto(index, buffer, buffer));
        });
        progress(decryptor.plainBytes());
    };
    co_await fetchChunk(0, bufferOf(0));
    for (std::int64_t index = 0; index < blob_.chunkCount; ++index) {
        if (index + 1 < blob_.chunkCount)
            co_await both(fetchChunk(index + 1, bufferOf(index + 1)), write(index));
        else
            co_await write(index);
    }
    static_cast<void>(decryptor.finish(meta.sha256));
    const auto modified = meta.mtime ? KRJSON::parseDate(*meta.mtime) : std::nullopt;
    co_await offload([&] { file.finish(modified); });
}

asio::awaitable<void> BlobFetch::fetchChunk(std::int64_t index, KRCrypto::Bytes& buffer) {
    const auto range =
        KRCrypto::ChunkCrypto::encryptedRange(index, blob_.chunkCount, blob_.encryptedSize, blob_.chunkSize);
    buffer.resize(static_cast<std::size_t>(range.end - range.start));
    for (;;) {
        try {
            co_await transport_->getInto(url_, range.start, buffer);
            co_return;
        } catch (const std::exception& error) {
            const auto* refusal = apiError(error);
            if (refusal == nullptr || !refusal->is<APIError::Forbidden>() || renewed_)
                throw;
        }
        renewed_ = true;
        url_ = co_await freshURL_();
    }
}

} // namespace Korvane
