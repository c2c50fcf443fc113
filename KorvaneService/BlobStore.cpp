#include "KorvaneService/BlobStore.hpp"

#include "KRCrypto/Sizes.hpp"
#include "KorvaneCore/platform/FileDescriptor.hpp"
#include "KorvaneCore/platform/Files.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace Korvane {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void refuse(std::string_view operation, const fs::path& path) {
    throw FileError(operation, path, std::error_code(errno, std::generic_category()));
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
    const auto file = uploadFolder(uploadId) / std::to_string(part);
    auto temporary = (uploadFolder(uploadId) / "part-XXXXXX").string();
    const FileDescriptor fd(::mkostemp(temporary.data(), O_CLOEXEC));
    if (fd.get() < 0)
        refuse("write", file);
    for (auto rest = bytes; !rest.empty();) {
        const auto written = ::write(fd.get(), rest.data(), rest.size());
        if (written < 0)
            refuse("write", file);
        rest = rest.subspan(static_cast<std::size_t>(written));
    }
    if (::rename(temporary.c_str(), file.c_str()) != 0)
        refuse("write", file);
}

void BlobStore::finishUpload(const std::string& uploadId) const {
    for (const auto& part : fs::directory_iterator(uploadFolder(uploadId))) {
        const FileDescriptor fd(::open(part.path().c_str(), O_RDONLY | O_CLOEXEC));
        if (fd.get() < 0 || ::fdatasync(fd.get()) != 0)
            refuse("sync", part.path());
    }
    if (::rename(uploadFolder(uploadId).c_str(), blobFolder(uploadId).c_str()) != 0)
        refuse("move", uploadFolder(uploadId));
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
