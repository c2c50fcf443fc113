#include "KorvaneCore/config/CrossProcessLock.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"

#include <stdexcept>

namespace Korvane {

namespace {

constexpr std::chrono::nanoseconds retryInterval{100'000'000};

FileLock openLockFile(const std::string& name) {
    if (name.empty() || name.find('/') != std::string::npos)
        throw std::invalid_argument("not a lock name: " + name);
    try {
        return FileLock(SharedContainer::directory("locks") / (name + ".lock"));
    } catch (const FileError& error) {
        // Callers go on unlocked.
        Log::warning("lock", error.what());
        return {};
    }
}

} // namespace

asio::awaitable<CrossProcessLock>
CrossProcessLock::acquire(std::string name, std::chrono::nanoseconds timeout, std::shared_ptr<Clock> clock) {
    CrossProcessLock lock(openLockFile(name));
    if (lock.fd() < 0)
        co_return lock;

    const auto start = clock->monotonic();
    while (!(lock.held_ = lock.file_.tryLock()) && clock->monotonic() - start <= timeout)
        co_await clock->sleep(retryInterval);
    co_return lock;
}

void CrossProcessLock::release() noexcept {
    file_.unlock();
    held_ = false;
}

} // namespace Korvane
