#pragma once

#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/Mutex.hpp"

#include <map>
#include <string>

namespace Korvane {

/// At most so many calls a minute for each key, counted in windows of a minute. Callable from any thread.
class RateLimiter {
public:
    explicit RateLimiter(std::shared_ptr<Clock> clock) : clock_(std::move(clock)) {}

    /// Counts one call. Throws Refusal with the rest of the window beyond `limit`.
    void count(const std::string& key, int limit) KR_EXCLUDES(mutex_);

private:
    struct Window {
        Clock::Instant start;
        int calls = 0;
    };

    std::shared_ptr<Clock> clock_;
    Mutex mutex_;
    std::map<std::string, Window> windows_ KR_GUARDED_BY(mutex_);
};

} // namespace Korvane
