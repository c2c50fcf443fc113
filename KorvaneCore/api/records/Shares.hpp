#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

#include <boost/describe.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

struct Share {
    std::string id;
    std::optional<std::string> token;
    std::string entityType;
    std::string entityId;
    std::optional<KRCrypto::Bytes> passwordSalt;
    std::optional<KRJSON::Date> expiresAt;
    std::optional<std::int64_t> downloads;
    std::optional<std::int64_t> views;
    std::optional<KRJSON::Date> createdAt;
    std::optional<KRJSON::Date> revokedAt;
    std::optional<std::int64_t> entryCount;

    bool operator==(const Share&) const = default;
};
BOOST_DESCRIBE_STRUCT(Share, (),
                      (id, token, entityType, entityId, passwordSalt, expiresAt, downloads, views, createdAt,
                       revokedAt, entryCount))

struct ShareEntry {
    std::string entryId;
    std::string entityType;
    std::string entityId;
    std::optional<std::string> parentEntryId;
    KRCrypto::Bytes metaEnc;
    std::optional<KRCrypto::Bytes> wrappedKey;
    std::optional<std::string> blobId;
    std::optional<std::int64_t> encryptedSize;
    std::optional<std::int64_t> chunkCount;

    bool operator==(const ShareEntry&) const = default;
};
BOOST_DESCRIBE_STRUCT(ShareEntry, (),
                      (entryId, entityType, entityId, parentEntryId, metaEnc, wrappedKey, blobId,
                       encryptedSize, chunkCount))

struct CreateShareRequest {
    std::string entityType;
    std::string entityId;
    std::optional<KRCrypto::Bytes> passwordSalt;
    std::optional<KRJSON::Date> expiresAt;
    std::vector<ShareEntry> entries;

    bool operator==(const CreateShareRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(CreateShareRequest, (), (entityType, entityId, passwordSalt, expiresAt, entries))

struct ShareEnvelope {
    Share share;

    bool operator==(const ShareEnvelope&) const = default;
};
BOOST_DESCRIBE_STRUCT(ShareEnvelope, (), (share))

struct SharesResponse {
    std::vector<Share> shares;

    bool operator==(const SharesResponse&) const = default;
};
BOOST_DESCRIBE_STRUCT(SharesResponse, (), (shares))

struct ShareDetail {
    Share share;
    std::vector<ShareEntry> entries;

    bool operator==(const ShareDetail&) const = default;
};
BOOST_DESCRIBE_STRUCT(ShareDetail, (), (share, entries))

struct UpdateShareEntriesRequest {
    std::vector<ShareEntry> upsert;
    std::vector<std::string> remove; ///< entry ids; the key is "delete"

    bool operator==(const UpdateShareEntriesRequest&) const = default;
};

[[nodiscard]] KRJSON::Value encodeJSON(const UpdateShareEntriesRequest& request);
void decodeJSON(const KRJSON::Value& json, UpdateShareEntriesRequest& request);

struct UpdateShareRequest {
    std::optional<KRJSON::Date> expiresAt;

    bool operator==(const UpdateShareRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(UpdateShareRequest, (), (expiresAt))

} // namespace Korvane
