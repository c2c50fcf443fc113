#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KorvaneCore/json/JSONValue.hpp"
#include "KorvaneCore/queue/LocalStat.hpp"
#include "KorvaneCore/queue/TransferOrigin.hpp"

#include <boost/describe/class.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Korvane {

/// What turns a local file into a file of the service. The members are the JSON keys of its stored form.
struct UploadJob {
    std::string sourcePath;
    bool deleteSourceWhenDone = false; ///< a private copy: removed after success and when discarded
    std::string folderId;
    std::string name;
    std::optional<std::string> mime;
    std::optional<std::chrono::system_clock::time_point> mtime;
    std::optional<std::string> fileId;       ///< the file to update; none for a new one
    std::optional<std::int64_t> baseVersion; ///< what the local change was based on
    std::string clientFileId;                ///< chosen here, so that creating it twice makes one file
    TransferOrigin origin;
    bool requiresUnmetered = false;
    std::optional<JSONValue> quickSend; ///< of a Quick Send, passed through

    // How far the runs have come.
    std::optional<LocalStat> sourceStat; ///< as it was hashed
    std::optional<std::string> sha256;   ///< of the plaintext, in hex
    std::optional<std::int64_t> plainSize;
    std::optional<KRCrypto::Bytes> wrappedFileKey;
    std::optional<std::string> uploadId; ///< the session at the service
    std::optional<std::string> blobId;
    std::int64_t nameAttempt = 0; ///< other names tried after name conflicts
    bool isConflictCopy = false;
    std::optional<std::string> originalName; ///< before it became a conflict copy

    bool operator==(const UploadJob&) const = default;
};

BOOST_DESCRIBE_STRUCT(UploadJob, (),
                      (sourcePath, deleteSourceWhenDone, folderId, name, mime, mtime, fileId, baseVersion,
                       clientFileId, origin, requiresUnmetered, quickSend, sourceStat, sha256, plainSize,
                       wrappedFileKey, uploadId, blobId, nameAttempt, isConflictCopy, originalName))

} // namespace Korvane
