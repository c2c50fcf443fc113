#pragma once

#include "KorvaneCore/jobs/UploadWork.hpp"

#include <optional>
#include <string>

namespace Korvane {

/// Makes a file, or a version of one, of a blob that is at the service. Names that are taken there are
/// numbered; an update that another device was quicker with becomes a copy beside that version.
class FileRegistration {
public:
    /// It outlives this.
    explicit FileRegistration(UploadWork& work) : work_(work) {}

    /// Completes the work's upload session, or without one names the blob. Throws APIError;
    /// TransferQueue::DropReason and PermanentFailure when the folder is missing; SQLiteError.
    asio::awaitable<RemoteFile> carryOut();

    /// The name in the account, as numbered so far.
    [[nodiscard]] std::string name() const;

private:
    asio::awaitable<RemoteFile> carryOutOnce();
    asio::awaitable<void> resolve(std::optional<RemoteFile> other);
    asio::awaitable<void> becomeConflictCopy();
    [[noreturn]] void folderMissing(const APIError::FolderMissing& missing);

    UploadWork& work_;
};

} // namespace Korvane
