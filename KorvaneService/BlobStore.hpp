#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KorvaneService/Exchange.hpp"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace Korvane {

/// Sealed bytes as files: a blob is a folder with one file for each of its chunks, a thumbnail is one file.
/// Identifiers are those the service drew itself, so they are safe as names. Throws FileError. Callable from
/// any thread.
class BlobStore {
public:
    BlobStore(const std::filesystem::path& folder, std::int64_t chunkSize);

    /// Bytes of the `part`-th chunk (from 1) of a blob of this size.
    [[nodiscard]] std::int64_t partSize(std::int64_t part, std::int64_t encryptedSize) const;

    /// Whether so many chunks make a blob of so many bytes.
    [[nodiscard]] bool isLayout(std::int64_t encryptedSize, std::int64_t chunkCount) const;

    void beginUpload(const std::string& uploadId) const;

    /// Replaces the part whole; it need not be on the disk on return.
    void putPart(const std::string& uploadId, std::int64_t part, KRCrypto::ByteView bytes) const;

    /// Whether the part is there, whole: one that was put may be lost when the machine stops.
    [[nodiscard]] bool holdsPart(const std::string& uploadId, std::int64_t part,
                                 std::int64_t encryptedSize) const;

    /// Makes an upload the blob of the same name, all of it on the disk on return. May be called again.
    void finishUpload(const std::string& uploadId) const;

    [[nodiscard]] std::filesystem::path uploadFolder(const std::string& uploadId) const;
    [[nodiscard]] std::filesystem::path blobFolder(const std::string& name) const;
    [[nodiscard]] std::filesystem::path thumbnailFile(const std::string& fileId) const;

    /// Bytes [first, first + length) of a blob, where they lie.
    [[nodiscard]] std::vector<FileSlice> slices(const std::string& name, std::int64_t first,
                                                std::int64_t length) const;

private:
    std::filesystem::path folder_;
    std::int64_t encryptedChunkSize_;
};

} // namespace Korvane
