#include "KorvaneCore/storage/IndexItem.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/MasterKey.hpp"
#include "KorvaneCore/api/records/RemoteFile.hpp"
#include "KorvaneCore/api/records/RemoteFolder.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

namespace Korvane {

using KRCrypto::KRCryptoError;

std::optional<IndexItem::Date> contentDate(const IndexItem& item) {
    return item.mtime ? item.mtime : item.createdAt;
}

IndexItem indexItem(const SQLRow& row) {
    return {
        .id = row.string("id").value_or(""),
        .isFolder = row.boolValue("is_folder"),
        .parentId = row.string("parent_id"),
        .name = row.string("name").value_or(""),
        .mime = row.string("mime"),
        .size = row.intValue("size").value_or(0),
        .sha256 = row.string("sha256"),
        .mtime = row.date("mtime"),
        .blobId = row.string("blob_id"),
        .encryptedSize = row.intValue("encrypted_size").value_or(0),
        .chunkCount = row.intValue("chunk_count").value_or(0),
        .wrappedFileKey = row.data("wrapped_file_key"),
        .version = row.intValue("version").value_or(0),
        .hasThumbnail = row.boolValue("has_thumbnail"),
        .metaEnc = row.data("meta_enc").value_or(IndexItem::Bytes()),
        .nameBlindIndex = row.string("name_blind_index"),
        .createdAt = row.date("created_at"),
        .updatedAt = row.date("updated_at"),
        .deletedAt = row.date("deleted_at"),
        .createdByDeviceId = row.string("created_by_device"),
        .seq = row.intValue("seq").value_or(0),
    };
}

IndexItem indexItem(const RemoteFolder& folder, const KRCrypto::MasterKey& masterKey) {
    IndexItem item;
    item.id = folder.id;
    item.isFolder = true;
    item.parentId = folder.parentId;
    item.metaEnc = folder.metaEnc.value_or(IndexItem::Bytes());
    if (folder.parentId || !item.metaEnc.empty()) {
        const auto meta = masterKey.openMeta(item.metaEnc);
        if (meta.file() != nullptr)
            throw KRCryptoError(KRCryptoError::InvalidMeta{});
        item.name = meta.name();
    }
    item.nameBlindIndex = folder.nameBlindIndex;
    item.createdAt = folder.createdAt;
    item.updatedAt = folder.updatedAt;
    item.deletedAt = folder.deletedAt;
    item.seq = folder.seq.value_or(0);
    return item;
}

IndexItem indexItem(const RemoteFile& file, const KRCrypto::MasterKey& masterKey) {
    const auto opened = masterKey.openMeta(file.metaEnc);
    const auto* meta = opened.file();
    if (meta == nullptr)
        throw KRCryptoError(KRCryptoError::InvalidMeta{});
    return {
        .id = file.id,
        .isFolder = false,
        .parentId = file.folderId,
        .name = meta->name,
        .mime = meta->mime,
        .size = meta->size,
        .sha256 = meta->sha256,
        .mtime = meta->mtime ? KRJSON::parseDate(*meta->mtime) : std::nullopt,
        .blobId = file.blobId,
        .encryptedSize = file.encryptedSize,
        .chunkCount = file.chunkCount,
        .wrappedFileKey = file.wrappedFileKey,
        .version = file.version,
        .hasThumbnail = file.hasThumbnail.value_or(false),
        .metaEnc = file.metaEnc,
        .nameBlindIndex = file.nameBlindIndex,
        .createdAt = file.createdAt,
        .updatedAt = file.updatedAt,
        .deletedAt = file.deletedAt,
        .createdByDeviceId = file.createdByDeviceId,
        .seq = file.seq.value_or(0),
    };
}

} // namespace Korvane
