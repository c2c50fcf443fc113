#include "KorvaneService/RateLimiter.hpp"

#include "KorvaneService/Refusal.hpp"

namespace Korvane {

namespace {

constexpr std::chrono::minutes windowLength{1};
constexpr std::size_t windowsKept = 10'000;

} // namespace

void RateLimiter::count(const std::string& key, int limit) {
    const auto now = clock_->monotonic();
    const MutexLock lock(mutex_);
    if (windows_.size() > windowsKept)
        std::erase_if(windows_, [&](const auto& entry) { return now - entry.second.start >= windowLength; });
    auto& window = windows_.try_emplace(key, Window{now, 0}).first->second;
    if (now - window.start >= windowLength)
        window = {now, 0};
    if (++window.calls > limit)
        throw Refusal::rateLimited(
            std::chrono::ceil<std::chrono::seconds>(window.start + windowLength - now));
}

} // namespace Korvane
