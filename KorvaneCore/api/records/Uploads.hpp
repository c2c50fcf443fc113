#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

#include <boost/describe.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

struct CreateUploadRequest {
    std::string blobId;
    std::int64_t encryptedSize = 0;
    std::int64_t chunkCount = 0;

    bool operator==(const CreateUploadRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(CreateUploadRequest, (), (blobId, encryptedSize, chunkCount))

struct UploadPart {
    std::int64_t partNumber = 0;
    std::string url; ///< absolute, pre-signed
    std::optional<bool> uploaded;

    bool operator==(const UploadPart&) const = default;
};
BOOST_DESCRIBE_STRUCT(UploadPart, (), (partNumber, url, uploaded))

struct CreateUploadResponse {
    std::string status;
    std::optional<std::string> blobId;
    std::optional<std::string> uploadId;
    std::optional<std::vector<UploadPart>> parts;
    std::optional<KRJSON::Date> expiresAt;
    std::optional<KRCrypto::Bytes> wrappedFileKey;
    std::optional<KRJSON::Date> uploadExpiresAt;

    bool operator==(const CreateUploadResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(CreateUploadResponse, (),
                      (status, blobId, uploadId, parts, expiresAt, wrappedFileKey, uploadExpiresAt))

struct UploadStatusResponse {
    std::string uploadId;
    std::vector<UploadPart> parts;
    std::optional<KRJSON::Date> expiresAt;
    std::optional<KRJSON::Date> uploadExpiresAt;
    std::optional<std::string> state;

    bool operator==(const UploadStatusResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(UploadStatusResponse, (), (uploadId, parts, expiresAt, uploadExpiresAt, state))

struct PartUploadResponse {
    std::optional<std::int64_t> partNumber;
    std::optional<std::string> etag;

    bool operator==(const PartUploadResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(PartUploadResponse, (), (partNumber, etag))

struct CompleteUploadRequest {
    std::string folderId;
    std::optional<std::string> id;           ///< chosen by the client
    std::optional<std::string> fileId;       ///< an existing file that gains a version
    std::optional<std::int64_t> baseVersion; ///< what the client last saw
    KRCrypto::Bytes metaEnc;
    std::string nameBlindIndex;
    KRCrypto::Bytes wrappedFileKey;

    bool operator==(const CompleteUploadRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(CompleteUploadRequest, (),
                      (folderId, id, fileId, baseVersion, metaEnc, nameBlindIndex, wrappedFileKey))

} // namespace Korvane
