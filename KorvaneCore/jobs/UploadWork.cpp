#include "KorvaneCore/jobs/UploadWork.hpp"

#include "KRCrypto/ChunkCrypto.hpp"

namespace Korvane {

namespace ChunkCrypto = KRCrypto::ChunkCrypto;

std::int64_t UploadWork::chunkCount() const {
    return ChunkCrypto::chunkCount(content->stat().size, context.chunkSize);
}

std::int64_t UploadWork::encryptedSize() const {
    return ChunkCrypto::encryptedSize(content->stat().size, context.chunkSize);
}

bool UploadWork::isOwn(const std::optional<RemoteFile>& file) const {
    return file && file->blobId == job.blobId && file->wrappedFileKey == job.wrappedFileKey;
}

void UploadWork::baseOn(const RemoteFile& file) {
    job.fileId = file.id;
    job.baseVersion = file.version;
}

} // namespace Korvane
