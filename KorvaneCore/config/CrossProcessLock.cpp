#include "KorvaneCore/config/CrossProcessLock.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <utility>

namespace Korvane {

namespace {

constexpr std::chrono::nanoseconds retryInterval{100'000'000};

/// Opened or created; -1 when that is impossible.
int openLockFile(const std::string& name) {
    try {
        const auto path = SharedContainer::directory("locks") / (name + ".lock");
        return ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    } catch (const FileError& error) {
        Log::warning("lock", error.what());
        return -1;
    }
}

} // namespace

asio::awaitable<CrossProcessLock>
CrossProcessLock::acquire(std::string name, std::chrono::nanoseconds timeout, std::shared_ptr<Clock> clock) {
    CrossProcessLock lock(openLockFile(name));
    if (lock.fd_ < 0)
        co_return lock;

    const auto deadline = clock->monotonic() + timeout;
    while (!lock.tryLock() && clock->monotonic() <= deadline)
        co_await clock->sleep(retryInterval);
    co_return lock;
}

CrossProcessLock::CrossProcessLock(CrossProcessLock&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), held_(std::exchange(other.held_, false)) {}

CrossProcessLock& CrossProcessLock::operator=(CrossProcessLock&& other) noexcept {
    std::swap(fd_, other.fd_);
    std::swap(held_, other.held_);
    return *this;
}

bool CrossProcessLock::tryLock() noexcept {
    held_ = ::flock(fd_, LOCK_EX | LOCK_NB) == 0;
    return held_;
}

void CrossProcessLock::release() noexcept {
    if (fd_ < 0)
        return;
    ::flock(fd_, LOCK_UN);
    ::close(std::exchange(fd_, -1));
    held_ = false;
}

} // namespace Korvane
