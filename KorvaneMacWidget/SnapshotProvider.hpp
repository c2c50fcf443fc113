#pragma once

#include "KorvaneMacWidget/SnapshotEntry.hpp"

#include <chrono>
#include <vector>

/// The timeline provider of both widgets. Reads the snapshot file and nothing else; callable from any thread.
namespace Korvane::SnapshotProvider {

using Time = std::chrono::system_clock::time_point;

struct Timeline {
    std::vector<SnapshotEntry> entries;
    Time reloadAfter; ///< ask for the next timeline from then on
};

/// What stands in while nothing is known yet: content that names nothing.
[[nodiscard]] SnapshotEntry placeholder(Time now);

/// For galleries and other short displays.
[[nodiscard]] SnapshotEntry snapshot(Time now);

/// One entry dated `now`, to be reloaded when the next day starts, so that "On this day" turns over with the
/// date.
[[nodiscard]] Timeline timeline(Time now);

} // namespace Korvane::SnapshotProvider
