#pragma once

#include "KRCrypto/Bytes.hpp"

#include <boost/describe/class.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Korvane {

/// A file as the server knows it, in its current version.
struct RemoteFile {
    std::string id;
    std::string folderId;
    KRCrypto::Bytes metaEnc; ///< sealed metadata
    std::optional<std::string> nameBlindIndex;
    std::string blobId;
    std::int64_t encryptedSize = 0; ///< bytes
    std::int64_t chunkCount = 0;
    KRCrypto::Bytes wrappedFileKey;
    std::int64_t version = 0;
    std::optional<bool> hasThumbnail;
    std::optional<std::chrono::system_clock::time_point> createdAt;
    std::optional<std::chrono::system_clock::time_point> updatedAt;
    std::optional<std::chrono::system_clock::time_point> deletedAt;
    std::optional<std::string> createdByDeviceId;
    std::optional<std::int64_t> seq;

    bool operator==(const RemoteFile&) const = default;
};
BOOST_DESCRIBE_STRUCT(RemoteFile, (),
                      (id, folderId, metaEnc, nameBlindIndex, blobId, encryptedSize, chunkCount,
                       wrappedFileKey, version, hasThumbnail, createdAt, updatedAt, deletedAt,
                       createdByDeviceId, seq))

} // namespace Korvane
