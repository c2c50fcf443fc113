#include "KorvaneService/TreeRecords.hpp"

#include "KorvaneService/Columns.hpp"

namespace Korvane {

RemoteFolder remoteFolder(const SQLRow& row) {
    RemoteFolder folder;
    folder.id = Columns::text(row, "id");
    folder.parentId = row.string("parent_id");
    folder.metaEnc = row.data("meta_enc");
    folder.nameBlindIndex = row.string("name_blind_index");
    folder.createdAt = row.date("created_at");
    folder.updatedAt = row.date("updated_at");
    folder.deletedAt = row.date("deleted_at");
    folder.seq = row.intValue("seq");
    return folder;
}

RemoteFile remoteFile(const SQLRow& row) {
    RemoteFile file;
    file.id = Columns::text(row, "id");
    file.folderId = Columns::text(row, "folder_id");
    file.metaEnc = Columns::bytes(row, "meta_enc");
    file.nameBlindIndex = row.string("name_blind_index");
    file.blobId = Columns::text(row, "blob_id");
    file.encryptedSize = Columns::integer(row, "encrypted_size");
    file.chunkCount = Columns::integer(row, "chunk_count");
    file.wrappedFileKey = Columns::bytes(row, "wrapped_file_key");
    file.version = Columns::integer(row, "version");
    file.hasThumbnail = row.boolValue("has_thumbnail");
    file.createdAt = row.date("created_at");
    file.updatedAt = row.date("updated_at");
    file.deletedAt = row.date("deleted_at");
    file.createdByDeviceId = row.string("created_by_device_id");
    file.seq = row.intValue("seq");
    return file;
}

FileVersion fileVersion(const SQLRow& row) {
    FileVersion version;
    version.version = Columns::integer(row, "version");
    version.blobId = Columns::text(row, "blob_id");
    version.encryptedSize = Columns::integer(row, "encrypted_size");
    version.chunkCount = Columns::integer(row, "chunk_count");
    version.wrappedFileKey = Columns::bytes(row, "wrapped_file_key");
    version.metaEnc = Columns::bytes(row, "meta_enc");
    version.createdAt = row.date("created_at");
    version.createdByDeviceId = row.string("created_by_device_id");
    return version;
}

} // namespace Korvane
