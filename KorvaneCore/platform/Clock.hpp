#pragma once

#include "KorvaneCore/platform/Async.hpp"

#include <chrono>
#include <memory>

namespace Korvane {

/// Time and timers, passed in wherever a test must steer them. Callable from any thread.
class Clock {
public:
    using Time = std::chrono::system_clock::time_point;
    using Instant = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;

    Clock() = default;
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;
    virtual ~Clock() = default;

    /// Wall-clock time: for what is stored or shown.
    [[nodiscard]] virtual Time now() const = 0;

    /// Time that never jumps: for deadlines and intervals.
    [[nodiscard]] virtual Instant monotonic() const = 0;

    /// Suspends the calling coroutine on its own executor. Throws boost::system::system_error
    /// (operation_aborted) when the coroutine is cancelled meanwhile.
    virtual asio::awaitable<void> sleep(Duration duration) = 0;
};

/// The system's clocks and timers.
[[nodiscard]] std::shared_ptr<Clock> systemClock();

} // namespace Korvane
