#pragma once

#include "KorvaneCore/platform/Async.hpp"
#include "KorvaneCore/platform/Clock.hpp"

#include <chrono>
#include <memory>
#include <string>

namespace Korvane {

/// A named lock across the processes that share the container. Advisory and best-effort: a caller that could
/// not have it in time goes on without it, so it must guard only what stays correct when two do it at once.
class CrossProcessLock {
public:
    /// Waits for the lock "locks/<name>.lock" of the container, asking every 100 ms, for at most `timeout`;
    /// then returns all the same. Returns at once with fd() -1 when the lock file cannot be opened. `name` is
    /// one path component. Suspends on the caller's executor; throws only when the coroutine is cancelled.
    static asio::awaitable<CrossProcessLock> acquire(std::string name, std::chrono::nanoseconds timeout,
                                                     std::shared_ptr<Clock> clock = systemClock());

    /// No lock: fd() is -1.
    CrossProcessLock() noexcept = default;
    CrossProcessLock(CrossProcessLock&& other) noexcept;
    CrossProcessLock& operator=(CrossProcessLock&& other) noexcept;
    CrossProcessLock(const CrossProcessLock&) = delete;
    CrossProcessLock& operator=(const CrossProcessLock&) = delete;

    ~CrossProcessLock() { release(); }

    /// Unlocks and closes; a second call does nothing.
    void release() noexcept;

    /// The open lock file, or -1.
    [[nodiscard]] int fd() const noexcept { return fd_; }

    /// Whether the lock is held: false after a timeout and when the file could not be opened.
    [[nodiscard]] bool isHeld() const noexcept { return held_; }

private:
    explicit CrossProcessLock(int fd) noexcept : fd_(fd) {}

    bool tryLock() noexcept;

    int fd_ = -1;
    bool held_ = false;
};

} // namespace Korvane
