#include "KorvaneCore/platform/FileStatus.hpp"

#include "KorvaneCore/platform/Files.hpp"

#include <sys/stat.h>

#include <cerrno>

namespace Korvane {

namespace {

FileStatus::Kind kindOf(mode_t mode) {
    if (S_ISREG(mode))
        return FileStatus::Kind::file;
    if (S_ISDIR(mode))
        return FileStatus::Kind::folder;
    return S_ISLNK(mode) ? FileStatus::Kind::link : FileStatus::Kind::other;
}

std::chrono::sys_time<std::chrono::nanoseconds> timeOf(const timespec& time) {
    return std::chrono::sys_time<std::chrono::nanoseconds>(std::chrono::seconds(time.tv_sec) +
                                                           std::chrono::nanoseconds(time.tv_nsec));
}

} // namespace

std::optional<FileStatus> fileStatus(const std::filesystem::path& path) {
    struct stat status{};
    if (::lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return std::nullopt;
        throw FileError("inspect", path);
    }
    return FileStatus{kindOf(status.st_mode), status.st_size, timeOf(status.st_mtim),
                      timeOf(status.st_ctim), status.st_ino,  status.st_dev};
}

} // namespace Korvane
