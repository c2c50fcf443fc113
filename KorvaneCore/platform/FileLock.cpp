#include "KorvaneCore/platform/FileLock.hpp"

#include "KorvaneCore/platform/Files.hpp"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

namespace Korvane {

FileLock::FileLock(const std::filesystem::path& file)
    : fd_(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (!fd_.isOpen())
        throw FileError("open", file, {errno, std::generic_category()});
}

void FileLock::lock() {
    while (::flock(fd_.get(), LOCK_EX) != 0)
        if (errno != EINTR)
            throw FileError("lock", "the lock file", {errno, std::generic_category()});
}

bool FileLock::tryLock() noexcept {
    return ::flock(fd_.get(), LOCK_EX | LOCK_NB) == 0;
}

void FileLock::unlock() noexcept {
    if (!fd_.isOpen())
        return;
    ::flock(fd_.get(), LOCK_UN);
    fd_.close();
}

} // namespace Korvane
