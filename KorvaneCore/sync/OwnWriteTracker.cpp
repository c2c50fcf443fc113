#include "KorvaneCore/sync/OwnWriteTracker.hpp"

#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"

#include <cmath>

namespace Korvane {

namespace {

constexpr double mtimeTolerance = 0.001; // s

std::optional<LocalStat> statNow(const std::string& path, const LocalStat& unknown) {
    try {
        return localStat(path);
    } catch (const FileError& error) {
        Log::warning("sync",
                     "a path cannot be looked at: " + error.code().message()); // the name is the user's
        return unknown;
    }
}

bool isUnchanged(const LocalStat& left, const LocalStat& now) {
    if (left.isDirectory && now.isDirectory)
        return true;
    return left.size == now.size && std::abs(left.mtime - now.mtime) < mtimeTolerance;
}

} // namespace

OwnWriteTracker::OwnWriteTracker(double window, std::shared_ptr<Clock> clock)
    : window_(std::chrono::duration_cast<Clock::Duration>(std::chrono::duration<double>(window))),
      clock_(std::move(clock)) {}

void OwnWriteTracker::registerWrite(const std::string& path, const LocalStat& stat) {
    const MutexLock lock(mutex_);
    expire();
    removals_.erase(path);
    entries_[path] = {stat, expiryOf(path)};
}

void OwnWriteTracker::registerRemoval(const std::string& path) {
    const MutexLock lock(mutex_);
    expire();
    entries_.erase(path);
    removals_[path] = expiryOf(path);
}

bool OwnWriteTracker::isOwnWrite(const std::string& path) {
    // What cannot be looked at is neither unchanged nor gone.
    constexpr LocalStat unknown{.size = -1};
    const MutexLock lock(mutex_);
    expire();
    if (const auto entry = entries_.find(path); entry != entries_.end()) {
        const auto now = statNow(path, unknown);
        return now && isUnchanged(entry->second.stat, *now);
    }
    return removals_.contains(path) && !statNow(path, unknown);
}

void OwnWriteTracker::expire() {
    const auto now = clock_->monotonic();
    while (!expiries_.empty() && expiries_.front().time < now) {
        // A later registration of the same path has a later expiry of its own.
        const auto& [time, path] = expiries_.front();
        if (const auto entry = entries_.find(path); entry != entries_.end() && entry->second.expiry == time)
            entries_.erase(entry);
        if (const auto removal = removals_.find(path); removal != removals_.end() && removal->second == time)
            removals_.erase(removal);
        expiries_.pop_front();
    }
}

Clock::Instant OwnWriteTracker::expiryOf(const std::string& path) {
    const auto expiry = clock_->monotonic() + window_;
    expiries_.push_back({expiry, path});
    return expiry;
}

} // namespace Korvane
