#pragma once

#include <sys/types.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace Korvane {

/// A file operation the system refused. what() names the operation, the path and the system's reason.
class FileError : public std::runtime_error {
public:
    FileError(std::string_view operation, const std::filesystem::path& path, std::error_code code);

    /// Of an error number; without one of errno.
    FileError(std::string_view operation, const std::filesystem::path& path, int number = errno)
        : FileError(operation, path, std::error_code(number, std::generic_category())) {}

    [[nodiscard]] const std::error_code& code() const noexcept { return code_; }

private:
    std::error_code code_;
};

/// The whole of a regular file of at most `maxBytes` bytes. Throws FileError: std::errc::file_too_large
/// beyond the limit, std::errc::invalid_argument when the path is not a regular file. Never blocks on a pipe
/// or device.
[[nodiscard]] std::string readFile(const std::filesystem::path& path, std::size_t maxBytes);

/// Replaces `path` by a file with these bytes, created with `mode` from the first byte: a reader sees the old
/// content or the new one whole. Content and name are on the disk on return. A link is replaced, not
/// followed. Throws FileError and leaves the old file as it was, unless the disk fails to make the new name
/// durable.
void replaceFile(const std::filesystem::path& path, std::string_view bytes, mode_t mode = 0600);

/// A new file with these bytes, 0600, there whole or not at all, in place of any old one. It need not be on
/// the disk on return: for files that mean nothing once the machine has stopped. Throws FileError.
void writeTemporaryFile(const std::filesystem::path& path, std::string_view bytes);

/// Creates the folder and the missing ones above it, for the owner only (0700). One that exists is left as it
/// is. Throws FileError.
void createDirectories(const std::filesystem::path& folder);

/// Creates the folder for the owner only; false when something has that name. Throws FileError.
[[nodiscard]] bool createFolder(const std::filesystem::path& folder);

/// Throws FileError (std::errc::permission_denied) unless `folder` is a folder, no link, that belongs to this
/// user and is closed to all others.
void requirePrivateFolder(const std::filesystem::path& folder);

/// Whether this user may write to the file, or create files in the folder.
[[nodiscard]] bool isWritable(const std::filesystem::path& path) noexcept;

/// When the file, or the link itself, was last modified; none when it cannot be inspected.
[[nodiscard]] std::optional<std::chrono::system_clock::time_point>
modificationDate(const std::filesystem::path& path) noexcept;

} // namespace Korvane
