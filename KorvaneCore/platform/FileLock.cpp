#include "KorvaneCore/platform/FileLock.hpp"

#include "KorvaneCore/platform/FileStatus.hpp"
#include "KorvaneCore/platform/Files.hpp"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <sstream>
#include <string>

namespace Korvane {

FileLock::FileLock(const std::filesystem::path& file)
    : fd_(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (!fd_.isOpen())
        throw FileError("open", file);
}

void FileLock::lock() {
    while (::flock(fd_.get(), LOCK_EX) != 0)
        if (errno != EINTR)
            throw FileError("lock", "the lock file");
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

std::optional<int> FileLock::holder(const std::filesystem::path& file) {
    constexpr std::size_t longest = std::size_t{16} << 20;
    const auto status = fileStatus(file);
    if (!status)
        return std::nullopt;
    // "1: FLOCK  ADVISORY  WRITE 4711 fd:01:123456 0 EOF"; who waits has "->" in place of FLOCK. Devices are
    // numbered otherwise on some file systems, so the inode alone has to do.
    const auto inode = ":" + std::to_string(status->inode);
    std::istringstream lines(readFile("/proc/locks", longest));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string number;
        std::string kind;
        std::string mode;
        std::string access;
        int process = 0;
        std::string place;
        if (words >> number >> kind >> mode >> access >> process >> place && kind == "FLOCK" &&
            place.ends_with(inode))
            return process;
    }
    return std::nullopt;
}

} // namespace Korvane
