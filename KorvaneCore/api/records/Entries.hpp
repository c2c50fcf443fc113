#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KorvaneCore/api/records/RemoteFile.hpp"
#include "KorvaneCore/api/records/RemoteFolder.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

#include <boost/describe.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

struct FolderEnvelope {
    RemoteFolder folder;

    bool operator==(const FolderEnvelope&) const = default;
};
BOOST_DESCRIBE_STRUCT(FolderEnvelope, (), (folder))

struct FileEnvelope {
    RemoteFile file;

    bool operator==(const FileEnvelope&) const = default;
};
BOOST_DESCRIBE_STRUCT(FileEnvelope, (), (file))

/// One page of a listing; `nextCursor` leads to the next one.
struct ChildrenPage {
    std::vector<RemoteFolder> folders;
    std::vector<RemoteFile> files;
    std::optional<std::string> nextCursor;

    bool operator==(const ChildrenPage&) const = default;
};
BOOST_DESCRIBE_STRUCT(ChildrenPage, (), (folders, files, nextCursor))

struct CreateFolderRequest {
    std::optional<std::string> id; ///< chosen by the client
    std::string parentId;
    KRCrypto::Bytes metaEnc;
    std::string nameBlindIndex;

    bool operator==(const CreateFolderRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(CreateFolderRequest, (), (id, parentId, metaEnc, nameBlindIndex))

struct UpdateFolderRequest {
    std::optional<std::string> parentId;
    std::optional<KRCrypto::Bytes> metaEnc;
    std::optional<std::string> nameBlindIndex;
    std::optional<KRJSON::Date> baseUpdatedAt; ///< what the client last saw

    bool operator==(const UpdateFolderRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(UpdateFolderRequest, (), (parentId, metaEnc, nameBlindIndex, baseUpdatedAt))

struct CreateFileRequest {
    std::optional<std::string> id; ///< chosen by the client
    std::string folderId;
    KRCrypto::Bytes metaEnc;
    std::string nameBlindIndex;
    std::string blobId;
    KRCrypto::Bytes wrappedFileKey;
    std::int64_t chunkCount = 0;
    std::int64_t encryptedSize = 0;
    std::optional<std::string> fileId;       ///< an existing file that gains a version
    std::optional<std::int64_t> baseVersion; ///< what the client last saw

    bool operator==(const CreateFileRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(CreateFileRequest, (),
                      (id, folderId, metaEnc, nameBlindIndex, blobId, wrappedFileKey, chunkCount,
                       encryptedSize, fileId, baseVersion))

struct UpdateFileRequest {
    std::optional<std::string> folderId;
    std::optional<KRCrypto::Bytes> metaEnc;
    std::optional<std::string> nameBlindIndex;
    std::optional<std::int64_t> baseVersion; ///< what the client last saw

    bool operator==(const UpdateFileRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(UpdateFileRequest, (), (folderId, metaEnc, nameBlindIndex, baseVersion))

struct FileVersion {
    std::int64_t version = 0;
    std::string blobId;
    std::int64_t encryptedSize = 0;
    std::int64_t chunkCount = 0;
    KRCrypto::Bytes wrappedFileKey;
    KRCrypto::Bytes metaEnc;
    std::optional<KRJSON::Date> createdAt;
    std::optional<std::string> createdByDeviceId;

    bool operator==(const FileVersion&) const = default;
};
BOOST_DESCRIBE_STRUCT(FileVersion, (),
                      (version, blobId, encryptedSize, chunkCount, wrappedFileKey, metaEnc, createdAt,
                       createdByDeviceId))

struct VersionsResponse {
    std::vector<FileVersion> versions;

    bool operator==(const VersionsResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(VersionsResponse, (), (versions))

struct DownloadInfo {
    std::string url; ///< absolute, pre-signed
    std::optional<KRJSON::Date> expiresAt;
    std::optional<std::string> blobId;
    std::int64_t encryptedSize = 0;
    std::int64_t chunkCount = 0;
    std::optional<KRCrypto::Bytes> wrappedFileKey;
    std::optional<std::int64_t> version;

    bool operator==(const DownloadInfo&) const = default;
};
BOOST_DESCRIBE_STRUCT(DownloadInfo, (),
                      (url, expiresAt, blobId, encryptedSize, chunkCount, wrappedFileKey, version))

struct TrashRestoreResponse {
    std::optional<RemoteFile> file;
    std::optional<RemoteFolder> folder;

    bool operator==(const TrashRestoreResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(TrashRestoreResponse, (), (file, folder))

} // namespace Korvane
