#pragma once

#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/Mutex.hpp"

#include <boost/asio/steady_timer.hpp>

#include <vector>

namespace Korvane::Testing {

/// Time that stands still until the test advances it.
class VirtualClock final : public Clock {
public:
    [[nodiscard]] Time now() const override KR_EXCLUDES(mutex_);
    [[nodiscard]] Instant monotonic() const override KR_EXCLUDES(mutex_);
    asio::awaitable<void> sleep(Duration duration) override KR_EXCLUDES(mutex_);

    /// Moves both clocks on and wakes whoever sleeps until then. The woken run when their executor does.
    void advance(Duration duration) KR_EXCLUDES(mutex_);

    /// Moves the wall clock alone, as when a user or a server corrects it.
    void jump(Duration duration) KR_EXCLUDES(mutex_);

    [[nodiscard]] std::size_t sleepers() const KR_EXCLUDES(mutex_);

private:
    struct Sleeper {
        Instant until;
        asio::steady_timer timer; // never expires; cancelled to wake
        bool due = false;
    };

    mutable Mutex mutex_;
    Time now_ KR_GUARDED_BY(mutex_) = Time(std::chrono::seconds(1'800'000'000));
    Instant monotonic_ KR_GUARDED_BY(mutex_);
    // Owned by the coroutines that sleep, which may be destroyed with their executor.
    std::vector<std::weak_ptr<Sleeper>> sleepers_ KR_GUARDED_BY(mutex_);
};

} // namespace Korvane::Testing
