#include "KorvaneCore/platform/Files.hpp"

#include "KorvaneCore/platform/FileDescriptor.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace Korvane {

namespace {

void writeAll(int fd, std::string_view bytes, const std::filesystem::path& path) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            throw FileError("write", path);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

/// A new file beside its later place, removed again unless it was renamed into it.
class StagedFile {
public:
    StagedFile(const std::filesystem::path& target, mode_t mode) : name_(target.string() + ".XXXXXX") {
        fd_ = FileDescriptor(::mkostemp(name_.data(), O_CLOEXEC));
        if (!fd_.isOpen())
            throw FileError("create", target);
        if (mode != 0600 && ::fchmod(fd_.get(), mode) != 0) {
            const int error = errno;
            ::unlink(name_.c_str());
            throw FileError("set the mode of", target, error);
        }
    }

    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    ~StagedFile() {
        if (!renamed_)
            ::unlink(name_.c_str());
    }

    void write(std::string_view bytes) { writeAll(fd_.get(), bytes, name_); }

    void sync() {
        if (::fsync(fd_.get()) != 0)
            throw FileError("sync", name_);
    }

    void renameTo(const std::filesystem::path& target) {
        if (::rename(name_.c_str(), target.c_str()) != 0)
            throw FileError("replace", target);
        renamed_ = true;
    }

private:
    std::string name_;
    FileDescriptor fd_;
    bool renamed_ = false;
};

} // namespace

FileError::FileError(std::string_view operation, const std::filesystem::path& path, std::error_code code)
    : std::runtime_error("cannot " + std::string(operation) + " " + path.string() + ": " + code.message()),
      code_(code) {}

std::string readFile(const std::filesystem::path& path, std::size_t maxBytes) {
    const FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd.isOpen())
        throw FileError("open", path);
    struct stat status{};
    if (::fstat(fd.get(), &status) != 0)
        throw FileError("inspect", path);
    if (!S_ISREG(status.st_mode))
        throw FileError("read", path, EINVAL);
    if (static_cast<std::uintmax_t>(status.st_size) > maxBytes)
        throw FileError("read", path, EFBIG);

    // One byte more than promised, so a file that grows past the limit meanwhile is noticed. Files of the
    // kernel's promise nothing, and some of them give only what fits the first read.
    constexpr std::size_t leastRead = 4096;
    const auto promised = std::max(static_cast<std::size_t>(status.st_size), std::min(leastRead, maxBytes));
    std::string bytes(promised + 1, '\0');
    std::size_t filled = 0;
    while (true) {
        const ssize_t count = ::read(fd.get(), bytes.data() + filled, bytes.size() - filled);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw FileError("read", path);
        if (count == 0)
            break;
        filled += static_cast<std::size_t>(count);
        if (filled > maxBytes)
            throw FileError("read", path, EFBIG);
        if (filled == bytes.size())
            bytes.resize(std::min(bytes.size() * 2, maxBytes + 1));
    }
    bytes.resize(filled);
    return bytes;
}

void replaceFile(const std::filesystem::path& path, std::string_view bytes, mode_t mode) {
    // Opened first, so that nothing is replaced where the new name could not be made durable.
    const auto folder = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
    const FileDescriptor folderFd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folderFd.isOpen())
        throw FileError("open folder", folder);

    StagedFile staged(path, mode);
    staged.write(bytes);
    staged.sync();
    staged.renameTo(path);
    if (::fsync(folderFd.get()) != 0)
        throw FileError("sync", folder);
}

void writeTemporaryFile(const std::filesystem::path& path, std::string_view bytes) {
    StagedFile staged(path, 0600);
    staged.write(bytes);
    staged.renameTo(path);
}

void createDirectories(const std::filesystem::path& folder) {
    if (folder.empty() || ::mkdir(folder.c_str(), 0700) == 0)
        return;
    if (errno == ENOENT) {
        createDirectories(folder.parent_path());
        if (::mkdir(folder.c_str(), 0700) == 0)
            return;
    }
    const int error = errno;
    struct stat status{};
    if (::stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
        return;
    throw FileError("create folder", folder, error);
}

bool createFolder(const std::filesystem::path& folder) {
    if (::mkdir(folder.c_str(), 0700) == 0)
        return true;
    if (errno != EEXIST)
        throw FileError("create folder", folder);
    return false;
}

void requirePrivateFolder(const std::filesystem::path& folder) {
    struct stat status{};
    if (::lstat(folder.c_str(), &status) != 0)
        throw FileError("inspect", folder);
    const bool isPrivate =
        S_ISDIR(status.st_mode) && status.st_uid == ::getuid() && (status.st_mode & 077) == 0;
    if (!isPrivate)
        throw FileError("trust folder", folder, EACCES);
}

bool isWritable(const std::filesystem::path& path) noexcept {
    return ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

std::optional<std::chrono::system_clock::time_point>
modificationDate(const std::filesystem::path& path) noexcept {
    struct stat status{};
    if (::lstat(path.c_str(), &status) != 0)
        return std::nullopt;
    return std::chrono::system_clock::time_point(std::chrono::seconds(status.st_mtim.tv_sec) +
                                                 std::chrono::nanoseconds(status.st_mtim.tv_nsec));
}

} // namespace Korvane
