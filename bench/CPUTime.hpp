#pragma once

#include <sys/resource.h>

namespace Korvane {

/// In seconds, user and system: of this process (RUSAGE_SELF) or of those it waited for (RUSAGE_CHILDREN).
inline double cpuTime(int who) {
    rusage usage{};
    ::getrusage(who, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

} // namespace Korvane
