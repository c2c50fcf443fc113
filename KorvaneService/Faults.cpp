#include "KorvaneService/Faults.hpp"

#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>

#include <algorithm>
#include <memory>

namespace Korvane {

struct Faults::Gate {
    asio::steady_timer timer; // never expires; cancelled to open
};

void Faults::add(const std::string& route, Fault::Kind kind, int nth, int times) {
    const MutexLock lock(mutex_);
    const int first = counts_[route].calls + nth;
    planned_[route].push_back({first, first + times - 1, std::move(kind)});
}

void Faults::clear() {
    const MutexLock lock(mutex_);
    planned_.clear();
}

int Faults::calls(const std::string& route) const {
    const MutexLock lock(mutex_);
    const auto found = counts_.find(route);
    return found == counts_.end() ? 0 : found->second.calls;
}

std::uint64_t Faults::bytesReceived(const std::string& route) const {
    const MutexLock lock(mutex_);
    const auto found = counts_.find(route);
    return found == counts_.end() ? 0 : found->second.bytes;
}

std::optional<Fault::Kind> Faults::next(const std::string& route, std::size_t bytes) {
    const MutexLock lock(mutex_);
    auto& counts = counts_[route];
    const int call = ++counts.calls;
    counts.bytes += bytes;
    const auto script = planned_.find(route);
    if (script == planned_.end())
        return std::nullopt;
    const auto due = std::ranges::find_if(
        script->second, [&](const Planned& fault) { return fault.first <= call && call <= fault.last; });
    return due == script->second.end() ? std::nullopt : std::optional(due->kind);
}

int Faults::held() const {
    const MutexLock lock(mutex_);
    return static_cast<int>(std::ranges::count_if(held_, [](const auto& gate) { return !gate.expired(); }));
}

void Faults::release() {
    const MutexLock lock(mutex_);
    // On its own executor: the held coroutine may be touching the timer now.
    for (const auto& held : held_)
        if (const auto gate = held.lock())
            asio::post(gate->timer.get_executor(), [gate] { gate->timer.cancel(); });
    held_.clear();
}

asio::awaitable<void> Faults::hold() {
    const auto executor = co_await asio::this_coro::executor;
    const auto gate = std::make_shared<Gate>(Gate{{executor, asio::steady_timer::time_point::max()}});
    {
        const MutexLock lock(mutex_);
        held_.push_back(gate);
    }
    boost::system::error_code opened;
    co_await gate->timer.async_wait(asio::redirect_error(asio::use_awaitable, opened));
}

} // namespace Korvane
