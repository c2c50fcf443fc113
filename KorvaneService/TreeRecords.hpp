#pragma once

#include "KorvaneCore/api/records/Entries.hpp"
#include "KorvaneCore/storage/SQLRow.hpp"

namespace Korvane {

/// A row of `folders` as the record that crosses the wire.
[[nodiscard]] RemoteFolder remoteFolder(const SQLRow& row);

/// Selects files with their current version; a condition on `f` follows.
inline constexpr const char* selectFiles =
    "SELECT f.*, v.blob_id, v.wrapped_file_key, v.created_by_device_id, b.encrypted_size, b.chunk_count "
    "FROM files f JOIN versions v ON v.file_id = f.id AND v.version = f.version "
    "JOIN blobs b ON b.user_id = v.user_id AND b.blob_id = v.blob_id WHERE ";

/// A row of `selectFiles`.
[[nodiscard]] RemoteFile remoteFile(const SQLRow& row);

/// A row of `versions` with its blob.
[[nodiscard]] FileVersion fileVersion(const SQLRow& row);

} // namespace Korvane
