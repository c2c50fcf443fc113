#pragma once

#include "KorvaneCore/platform/Async.hpp"
#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/FileLock.hpp"

#include <chrono>
#include <memory>
#include <string>
#include <utility>

namespace Korvane {

/// A named lock across the processes that share the container. Advisory and best-effort: a caller that could
/// not have it in time goes on without it, so it must guard only what stays correct when two do it at once.
class CrossProcessLock {
public:
    /// Waits for the lock "locks/<name>.lock" of the container, asking every 100 ms, for at most `timeout`;
    /// then returns all the same. Returns at once with fd() -1 when the lock file cannot be opened. Suspends
    /// on the caller's executor. Throws boost::system::system_error when the coroutine is cancelled,
    /// std::invalid_argument when `name` is not one path component, and what reading the bundle throws.
    static asio::awaitable<CrossProcessLock> acquire(std::string name, std::chrono::nanoseconds timeout,
                                                     std::shared_ptr<Clock> clock = systemClock());

    /// No lock: fd() is -1.
    CrossProcessLock() noexcept = default;

    /// Unlocks and closes, as the end of this object does; a second call does nothing.
    void release() noexcept;

    /// The open lock file, or -1.
    [[nodiscard]] int fd() const noexcept { return file_.fd(); }

    /// Whether the lock is held: false after a timeout and when the file could not be opened.
    [[nodiscard]] bool isHeld() const noexcept { return held_ && file_.fd() >= 0; }

private:
    explicit CrossProcessLock(FileLock file) noexcept : file_(std::move(file)) {}

    FileLock file_;
    bool held_ = false;
};

} // namespace Korvane
