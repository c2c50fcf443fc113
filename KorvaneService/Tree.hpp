#pragma once

#include "KorvaneCore/api/records/Entries.hpp"
#include "KorvaneService/ChangeFeed.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Korvane {

/// One user's folders, files and their versions. For one transaction; every change is recorded in the user's
/// change feed. Throws Refusal.
class Tree {
public:
    Tree(ServiceState& state, SQLiteDatabase& database, Session session);

    /// The root of a new account.
    void createRoot(const std::string& id) const;

    /// In the trash or not.
    [[nodiscard]] RemoteFolder folder(const std::string& id) const;
    [[nodiscard]] RemoteFile file(const std::string& id) const;
    [[nodiscard]] bool hasFile(const std::string& id) const;
    [[nodiscard]] std::vector<FileVersion> versions(const std::string& fileId) const;

    /// Folders first, then files, by identifier; `folderId` none for what lies in the trash itself.
    [[nodiscard]] ChildrenPage page(const std::optional<std::string>& folderId,
                                    const std::optional<std::string>& cursor, std::int64_t limit) const;

    RemoteFolder createFolder(const CreateFolderRequest& request) const;
    RemoteFolder updateFolder(const std::string& id, const UpdateFolderRequest& request) const;
    RemoteFolder setFolderTrashed(const std::string& id, bool trashed) const;

    /// A new file, or a new version of `fileId`. Its blob must be there. The same creation sent again gives
    /// the file it made; another creation with that id is a version conflict.
    RemoteFile createFile(const CreateFileRequest& request) const;
    RemoteFile updateFile(const std::string& id, const UpdateFileRequest& request) const;
    RemoteFile setFileTrashed(const std::string& id, bool trashed) const;

    /// A new version like an older one, its name included.
    RemoteFile restoreVersion(const std::string& id, std::int64_t version) const;
    void setHasThumbnail(const std::string& fileId) const;

    /// Removes an item of the trash with everything below it. What is to be removed from the disk is added to
    /// `discarded`.
    void purge(const std::string& id, std::vector<std::filesystem::path>& discarded) const;
    void purgeTrash(std::vector<std::filesystem::path>& discarded) const;

private:
    void requireLiveFolder(const std::string& id) const;
    void requireFreeName(const std::string& folderId, const std::string& nameBlindIndex,
                         const std::string& exceptId) const;
    void requireNewId(const std::string& id) const;
    void requireOutside(const std::string& folderId, const std::string& target) const;
    void addVersion(const std::string& fileId, std::int64_t version, const std::string& blobId,
                    const KRCrypto::Bytes& wrappedFileKey, const KRCrypto::Bytes& metaEnc,
                    const std::string& nameBlindIndex) const;
    RemoteFile addVersionTo(const RemoteFile& current, const CreateFileRequest& request) const;
    RemoteFolder recorded(const std::string& folderId, std::string_view op) const;
    RemoteFile recordedFile(const std::string& fileId, std::string_view op) const;
    void removeFile(const std::string& id, std::vector<std::filesystem::path>& discarded) const;
    void removeFolder(const std::string& id, std::vector<std::filesystem::path>& discarded) const;
    void removeUnusedBlobs(std::vector<std::filesystem::path>& discarded) const;

    ServiceState* state_;
    SQLiteDatabase* database_;
    Session session_;
    ChangeFeed feed_;
};

} // namespace Korvane
