#pragma once

#include "KorvaneCore/storage/SQLRow.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KRCrypto {
class MasterKey;
}

namespace Korvane {

struct RemoteFile;
struct RemoteFolder;

/// A file or folder as the local index knows it. Names are decrypted; what is sealed stays so.
struct IndexItem {
    using Date = std::chrono::system_clock::time_point;
    using Bytes = std::vector<std::uint8_t>;

    std::string id;
    bool isFolder = false;
    std::optional<std::string> parentId; ///< none for a root folder
    std::string name;
    std::optional<std::string> mime;
    std::int64_t size = 0;             ///< plaintext, in bytes
    std::optional<std::string> sha256; ///< of the plaintext, hexadecimal
    std::optional<Date> mtime;         ///< from the metadata
    std::optional<std::string> blobId;
    std::int64_t encryptedSize = 0; ///< in bytes
    std::int64_t chunkCount = 0;
    std::optional<Bytes> wrappedFileKey; ///< sealed for the account
    std::int64_t version = 0;            ///< the server's
    bool hasThumbnail = false;           ///< on the server
    Bytes metaEnc;                       ///< sealed metadata; empty for a root folder without any
    std::optional<std::string> nameBlindIndex;
    std::optional<Date> createdAt; ///< this and the next two by the server's clock
    std::optional<Date> updatedAt;
    std::optional<Date> deletedAt; ///< when it went to the Trash; none while it is not there
    std::optional<std::string> createdByDeviceId;
    std::int64_t seq = 0; ///< number in the change feed of the last change applied

    bool operator==(const IndexItem&) const = default;
};

/// When the content was made, as far as the index knows: its modification time, else when it came to the
/// server.
[[nodiscard]] std::optional<IndexItem::Date> contentDate(const IndexItem& item);

/// A row of `items`.
[[nodiscard]] IndexItem indexItem(const SQLRow& row);

/// What the server's record says, its metadata opened. A root folder may come without metadata and then has
/// no name. A modification time that is no date is left out. Throws KRCryptoError when the metadata does not
/// open, or belongs to the other kind of entry.
[[nodiscard]] IndexItem indexItem(const RemoteFolder& folder, const KRCrypto::MasterKey& masterKey);
[[nodiscard]] IndexItem indexItem(const RemoteFile& file, const KRCrypto::MasterKey& masterKey);

} // namespace Korvane
