#include "KorvaneCommand/ProgressDisplay.hpp"

#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCore/platform/StandardOutput.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace Korvane {

namespace {

std::string durationText(double seconds) {
    const auto whole = static_cast<long>(std::min(seconds, 359'999.0));
    return whole >= 3600 ? fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60)
                         : fmt::format("{}:{:02}", whole / 60, whole % 60);
}

} // namespace

ProgressDisplay::ProgressDisplay() : terminal_(isTerminal(stderr)), before_(systemClock()->monotonic()) {}

std::string ProgressDisplay::line(const TransferQueueStats& stats) {
    const auto now = systemClock()->monotonic();
    const std::chrono::duration<double> passed = now - before_;
    // What is done leaves both sums, and what is added raises what is left.
    const auto left = static_cast<double>(stats.bytesTotal - stats.bytesDone);
    const auto moved = std::max(0.0, leftBefore_ - left);
    if (passed.count() > 0)
        rate_ = rate_ * 0.7 + moved / passed.count() * 0.3;
    before_ = now;
    leftBefore_ = left;
    auto text = fmt::format("{} moving, {} waiting, {} failed", stats.running, stats.pending + stats.paused,
                            stats.failed);
    if (stats.running > 0)
        text += fmt::format("; {} of {}, {}/s", byteCount(static_cast<double>(stats.bytesDone)),
                            byteCount(static_cast<double>(stats.bytesTotal)), byteCount(rate_));
    if (stats.running > 0 && rate_ > 1)
        text += fmt::format(", {} left", durationText(left / rate_));
    return text;
}

void ProgressDisplay::show(const TransferQueueStats& stats) {
    const auto text = line(stats);
    if (text == shown_)
        return;
    shown_ = text;
    if (terminal_)
        fmt::print(stderr, "\r\x1b[2K{}", text);
    else
        fmt::print(stderr, "{}\n", text);
    std::fflush(stderr);
    open_ = terminal_;
}

void ProgressDisplay::end() {
    if (open_)
        std::fputc('\n', stderr);
    open_ = false;
}

} // namespace Korvane
