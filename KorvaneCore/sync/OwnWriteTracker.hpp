#pragma once

#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/Mutex.hpp"
#include "KorvaneCore/queue/LocalStat.hpp"

#include <deque>
#include <memory>
#include <string>
#include <unordered_map>

namespace Korvane {

/// Remembers for a short while what the engine itself wrote or removed, so that an event the engine caused is
/// not taken for a user's change. Paths are absolute and compared byte for byte. Callable from any thread.
class OwnWriteTracker {
public:
    /// `window`: how many seconds a registration stays valid, its last moment included.
    OwnWriteTracker(double window, std::shared_ptr<Clock> clock);

    /// After writing a file or creating a folder: what is there now. Replaces a removal of the path.
    void registerWrite(const std::string& path, const LocalStat& stat) KR_EXCLUDES(mutex_);

    /// After deleting something or moving it away. Replaces a write of the path.
    void registerRemoval(const std::string& path) KR_EXCLUDES(mutex_);

    /// Whether the path is still as the engine left it. Looks at the disk; what cannot be looked at counts as
    /// changed.
    [[nodiscard]] bool isOwnWrite(const std::string& path) KR_EXCLUDES(mutex_);

private:
    struct Entry {
        LocalStat stat;
        Clock::Instant expiry;
    };

    struct Expiry {
        Clock::Instant time;
        std::string path;
    };

    void expire() KR_REQUIRES(mutex_);
    Clock::Instant expiryOf(const std::string& path) KR_REQUIRES(mutex_);

    const Clock::Duration window_;
    const std::shared_ptr<Clock> clock_;
    Mutex mutex_;
    std::unordered_map<std::string, Entry> entries_ KR_GUARDED_BY(mutex_);
    std::unordered_map<std::string, Clock::Instant> removals_ KR_GUARDED_BY(mutex_);
    std::deque<Expiry> expiries_ KR_GUARDED_BY(mutex_); // of all registrations, in their order
};

} // namespace Korvane
