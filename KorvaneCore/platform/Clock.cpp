#include "KorvaneCore/platform/Clock.hpp"

#include <boost/asio/steady_timer.hpp>

namespace Korvane {

namespace {

class SystemClock final : public Clock {
public:
    [[nodiscard]] Time now() const override { return std::chrono::system_clock::now(); }

    [[nodiscard]] Instant monotonic() const override { return std::chrono::steady_clock::now(); }

    asio::awaitable<void> sleep(Duration duration) override {
        asio::steady_timer timer(co_await asio::this_coro::executor, duration);
        co_await timer.async_wait(asio::use_awaitable);
    }
};

} // namespace

std::shared_ptr<Clock> systemClock() {
    static const auto clock = std::make_shared<SystemClock>();
    return clock;
}

} // namespace Korvane
