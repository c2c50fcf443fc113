#include "KorvaneCore/platform/OpenFile.hpp"

#include "KorvaneCore/platform/Files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Korvane {

namespace {

struct stat inspect(const FileDescriptor& fd, const std::filesystem::path& path) {
    struct stat status{};
    if (::fstat(fd.get(), &status) != 0)
        throw FileError("inspect", path);
    return status;
}

} // namespace

OpenFile::OpenFile(std::filesystem::path path, int flags)
    : path_(std::move(path)), fd_(::open(path_.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600)) {
    if (!fd_.isOpen())
        throw FileError("open", path_);
}

OpenFile OpenFile::forReading(std::filesystem::path path) {
    OpenFile file(std::move(path), O_RDONLY | O_NONBLOCK);
    if (!S_ISREG(inspect(file.fd_, file.path_).st_mode))
        throw FileError("read", file.path_, EINVAL);
    return file;
}

OpenFile OpenFile::create(std::filesystem::path path) {
    return {std::move(path), O_WRONLY | O_CREAT | O_EXCL};
}

std::uint64_t OpenFile::size() const {
    return static_cast<std::uint64_t>(inspect(fd_, path_).st_size);
}

void OpenFile::readAt(std::uint64_t offset, std::span<std::uint8_t> into) const {
    while (!into.empty()) {
        const auto count = ::pread(fd_.get(), into.data(), into.size(), static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            throw FileError("read", path_, count < 0 ? errno : EIO);
        into = into.subspan(static_cast<std::size_t>(count));
        offset += static_cast<std::uint64_t>(count);
    }
}

void OpenFile::append(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const auto count = ::write(fd_.get(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw FileError("write", path_);
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
}

} // namespace Korvane
