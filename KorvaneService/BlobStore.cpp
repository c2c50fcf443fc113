#include "KorvaneService/BlobStore.hpp"

#include "KRCrypto/Sizes.hpp"
#include "KorvaneCore/platform/FileDescriptor.hpp"
#include "KorvaneCore/platform/Files.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Korvane {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void refuse(std::string_view operation, const fs::path& path) {
    throw FileError(operation, path, std::error_code(errno, std::generic_category()));
}

/// Returns once the file's bytes, or the folder's names, are on the disk.
void sync(const fs::path& path) {
    const FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.isOpen() || ::fsync(fd.get()) != 0)
        refuse("sync", path);
}

/// Not what a crash left of writing one.
bool isPart(const fs::path& file) {
    return !file.has_extension();
}

} // namespace

BlobStore::BlobStore(const fs::path& folder, std::int64_t chunkSize)
    : folder_(folder), encryptedChunkSize_(chunkSize + static_cast<std::int64_t>(KRCrypto::gcmTagSize)) {
    for (const auto* name : {"uploads", "blobs", "thumbnails"})
        createDirectories(folder_ / name);
}

std::int64_t BlobStore::partSize(std::int64_t part, std::int64_t encryptedSize) const {
    return std::min(encryptedChunkSize_, encryptedSize - (part - 1) * encryptedChunkSize_);
}

bool BlobStore::isLayout(std::int64_t encryptedSize, std::int64_t chunkCount) const {
    if (chunkCount < 1 || chunkCount > KRCrypto::maxParts || encryptedSize < 0)
        return false;
    const auto last = partSize(chunkCount, encryptedSize);
    const auto least = static_cast<std::int64_t>(KRCrypto::gcmTagSize) + (chunkCount > 1 ? 1 : 0);
    return last >= least && encryptedSize <= chunkCount * encryptedChunkSize_;
}

void BlobStore::beginUpload(const std::string& uploadId) const {
    createDirectories(uploadFolder(uploadId));
}

void BlobStore::putPart(const std::string& uploadId, std::int64_t part, KRCrypto::ByteView bytes) const {
    writeTemporaryFile(uploadFolder(uploadId) / std::to_string(part), KRCrypto::asText(bytes));
}

bool BlobStore::holdsPart(const std::string& uploadId, std::int64_t part, std::int64_t encryptedSize) const {
    const auto isWhole = [&](const fs::path& folder) {
        std::error_code absent;
        const auto size = fs::file_size(folder / std::to_string(part), absent);
        return !absent && std::cmp_equal(size, partSize(part, encryptedSize));
    };
    return isWhole(uploadFolder(uploadId)) || isWhole(blobFolder(uploadId));
}

void BlobStore::finishUpload(const std::string& uploadId) const {
    const auto upload = uploadFolder(uploadId);
    const auto blob = blobFolder(uploadId);
    if (!fs::exists(blob)) { // else an earlier attempt came so far, and what followed failed
        for (const auto& entry : fs::directory_iterator(upload))
            if (isPart(entry.path()))
                sync(entry.path());
            else
                fs::remove(entry.path());
        sync(upload);
        if (::rename(upload.c_str(), blob.c_str()) != 0)
            refuse("move", upload);
    }
    sync(blob.parent_path());
    sync(upload.parent_path());
}

fs::path BlobStore::uploadFolder(const std::string& uploadId) const {
    return folder_ / "uploads" / uploadId;
}

fs::path BlobStore::blobFolder(const std::string& name) const {
    return folder_ / "blobs" / name;
}

fs::path BlobStore::thumbnailFile(const std::string& fileId) const {
    return folder_ / "thumbnails" / fileId;
}

std::vector<FileSlice> BlobStore::slices(const std::string& name, std::int64_t first,
                                         std::int64_t length) const {
    std::vector<FileSlice> result;
    while (length > 0) {
        const auto part = first / encryptedChunkSize_;
        const auto offset = first % encryptedChunkSize_;
        const auto taken = std::min(length, encryptedChunkSize_ - offset);
        result.push_back({blobFolder(name) / std::to_string(part + 1), static_cast<std::uint64_t>(offset),
                          static_cast<std::uint64_t>(taken)});
        first += taken;
        length -= taken;
    }
    return result;
}

} // namespace Korvane
