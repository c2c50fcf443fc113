#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>

namespace Korvane {

/// What the file system says of one path. A link is described itself, never what it points to.
struct FileStatus {
    enum class Kind { file, folder, link, other };

    Kind kind = Kind::file;
    std::int64_t size = 0; ///< bytes
    std::chrono::sys_time<std::chrono::nanoseconds> modified;
    std::chrono::sys_time<std::chrono::nanoseconds> changed; ///< content, name, permissions or owner
    std::uint64_t inode = 0;
    std::uint64_t device = 0; ///< of the file system; with the inode it tells one file from all others
};

/// None when nothing exists at the path. Throws FileError when the system does not tell.
[[nodiscard]] std::optional<FileStatus> fileStatus(const std::filesystem::path& path);

} // namespace Korvane
