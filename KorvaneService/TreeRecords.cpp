#include "KorvaneService/TreeRecords.hpp"

namespace Korvane {

RemoteFolder remoteFolder(const SQLRow& row) {
    RemoteFolder folder;
    folder.id = row.string("id").value();
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
    file.id = row.string("id").value();
    file.folderId = row.string("folder_id").value();
    file.metaEnc = row.data("meta_enc").value();
    file.nameBlindIndex = row.string("name_blind_index");
    file.blobId = row.string("blob_id").value();
    file.encryptedSize = row.intValue("encrypted_size").value();
    file.chunkCount = row.intValue("chunk_count").value();
    file.wrappedFileKey = row.data("wrapped_file_key").value();
    file.version = row.intValue("version").value();
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
    version.version = row.intValue("version").value();
    version.blobId = row.string("blob_id").value();
    version.encryptedSize = row.intValue("encrypted_size").value();
    version.chunkCount = row.intValue("chunk_count").value();
    version.wrappedFileKey = row.data("wrapped_file_key").value();
    version.metaEnc = row.data("meta_enc").value();
    version.createdAt = row.date("created_at");
    version.createdByDeviceId = row.string("created_by_device_id");
    return version;
}

} // namespace Korvane
