#pragma once

#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"

#include <string>

namespace Korvane {

/// What moves, on standard error: one line that is rewritten on a terminal, a line a second where the text
/// goes elsewhere, and nothing while nothing changes.
class ProgressDisplay {
public:
    ProgressDisplay();

    void show(const TransferQueueStats& stats);

    /// Leaves the last line as it stands.
    void end();

private:
    [[nodiscard]] std::string line(const TransferQueueStats& stats);

    bool terminal_;
    bool open_ = false; ///< the line has not ended
    std::string shown_;
    double leftBefore_ = 0;
    Clock::Instant before_;
    double rate_ = 0; ///< bytes per second, smoothed
};

} // namespace Korvane
