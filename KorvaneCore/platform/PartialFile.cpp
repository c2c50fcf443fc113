#include "KorvaneCore/platform/PartialFile.hpp"

#include "KorvaneCore/platform/Files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace Korvane {

namespace {

std::error_code lastError() {
    return {errno, std::generic_category()};
}

/// Brings a new name in this folder to the disk. A file system that cannot is left to its own pace.
void syncFolder(const std::filesystem::path& folder) {
    const FileDescriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.isOpen())
        ::fsync(fd.get());
}

std::error_code synced(std::error_code error, const std::filesystem::path& destination) {
    if (!error)
        syncFolder(destination.parent_path());
    return error;
}

/// Takes the name with something empty of the same kind, and only then renames over that.
std::error_code renameOverPlaceholder(const std::filesystem::path& from,
                                      const std::filesystem::path& to) noexcept {
    struct stat status{};
    if (::lstat(from.c_str(), &status) != 0)
        return lastError();
    if (S_ISDIR(status.st_mode)) {
        if (::mkdir(to.c_str(), 0700) != 0)
            return lastError();
    } else if (!FileDescriptor(::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)).isOpen()) {
        return lastError();
    }
    if (::rename(from.c_str(), to.c_str()) == 0)
        return {};
    const auto error = lastError();
    ::remove(to.c_str());
    return error;
}

timespec timespecOf(std::chrono::system_clock::time_point time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(time - seconds);
    return {static_cast<time_t>(seconds.time_since_epoch().count()), static_cast<long>(rest.count())};
}

} // namespace

PartialFile::PartialFile(std::filesystem::path path) : path_(std::move(path)) {
    if (::unlink(path_.c_str()) != 0 && errno != ENOENT)
        throw FileError("remove", path_);
    fd_ = FileDescriptor(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd_.isOpen())
        throw FileError("create", path_);
}

void PartialFile::append(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const auto written = ::write(fd_.get(), bytes.data(), bytes.size());
        if (written >= 0)
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            throw FileError("write", path_);
    }
}

void PartialFile::finish(const std::optional<std::chrono::system_clock::time_point>& modified) {
    if (modified) {
        const timespec times[2] = {{0, UTIME_OMIT}, timespecOf(*modified)};
        if (::futimens(fd_.get(), times) != 0)
            throw FileError("date", path_);
    }
    if (::fsync(fd_.get()) != 0)
        throw FileError("write", path_);
    fd_.close();
}

std::error_code PartialFile::takePermissions(const std::filesystem::path& destination) const {
    constexpr mode_t permissions = S_IRWXU | S_IRWXG | S_IRWXO; // none of the bits that lend rights
    struct stat status{};
    if (::lstat(destination.c_str(), &status) != 0)
        return lastError();
    if (!S_ISREG(status.st_mode)) // those of links mean nothing
        return {};
    return ::chmod(path_.c_str(), status.st_mode & permissions) == 0 ? std::error_code() : lastError();
}

std::error_code PartialFile::place(const std::filesystem::path& destination) const {
    return synced(renameToFreeName(path_, destination), destination);
}

std::error_code PartialFile::placeOver(const std::filesystem::path& destination) const {
    const int result = ::rename(path_.c_str(), destination.c_str());
    return synced(result == 0 ? std::error_code() : lastError(), destination);
}

std::error_code PartialFile::exchange(const std::filesystem::path& destination) const {
    const int result = ::renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, destination.c_str(), RENAME_EXCHANGE);
    return synced(result == 0 ? std::error_code() : lastError(), destination);
}

std::error_code renameToFreeName(const std::filesystem::path& from,
                                 const std::filesystem::path& to) noexcept {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return {};
    if (errno != EINVAL)
        return lastError();
    // A file system without that flag: a second name is refused when it is taken, then the first one goes.
    if (::link(from.c_str(), to.c_str()) == 0)
        return ::unlink(from.c_str()) == 0 ? std::error_code() : lastError();
    const bool hasNoLinks = errno == EPERM || errno == ENOSYS || errno == EOPNOTSUPP;
    return hasNoLinks ? renameOverPlaceholder(from, to) : lastError();
}

} // namespace Korvane
