#include "tests/support/VirtualClock.hpp"

#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>

#include <algorithm>

namespace Korvane::Testing {

Clock::Time VirtualClock::now() const {
    const MutexLock lock(mutex_);
    return now_;
}

Clock::Instant VirtualClock::monotonic() const {
    const MutexLock lock(mutex_);
    return monotonic_;
}

asio::awaitable<void> VirtualClock::sleep(Duration duration) {
    const auto executor = co_await asio::this_coro::executor;
    std::shared_ptr<Sleeper> sleeper;
    {
        const MutexLock lock(mutex_);
        sleeper = std::make_shared<Sleeper>(
            Sleeper{monotonic_ + duration,
                    asio::steady_timer(executor, asio::steady_timer::time_point::max()), false});
        std::erase_if(sleepers_, [](const auto& gone) { return gone.expired(); });
        sleepers_.push_back(sleeper);
    }
    boost::system::error_code woken;
    if (duration > Duration::zero())
        co_await sleeper->timer.async_wait(asio::redirect_error(asio::use_awaitable, woken));
    const MutexLock lock(mutex_);
    if (woken && !sleeper->due)
        throw boost::system::system_error(woken);
}

void VirtualClock::advance(Duration duration) {
    const MutexLock lock(mutex_);
    now_ += std::chrono::duration_cast<Time::duration>(duration);
    monotonic_ += duration;
    for (const auto& each : sleepers_) {
        const auto sleeper = each.lock();
        if (!sleeper || sleeper->until > monotonic_)
            continue;
        sleeper->due = true;
        // On its own executor: the sleeper's coroutine may be touching the timer now.
        asio::post(sleeper->timer.get_executor(), [sleeper] { sleeper->timer.cancel(); });
    }
}

void VirtualClock::jump(Duration duration) {
    const MutexLock lock(mutex_);
    now_ += std::chrono::duration_cast<Time::duration>(duration);
}

std::size_t VirtualClock::sleepers() const {
    const MutexLock lock(mutex_);
    return static_cast<std::size_t>(
        std::ranges::count_if(sleepers_, [](const auto& each) { return !each.expired(); }));
}

} // namespace Korvane::Testing
