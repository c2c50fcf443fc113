#include "KorvaneCore/storage/SQLValue.hpp"

#include <algorithm>
#include <cmath>

namespace Korvane {

using std::chrono::system_clock;

double secondsSince1970(system_clock::time_point date) {
    using std::chrono::duration;
    // In two steps: a double cannot hold today's count of nanoseconds.
    const auto whole = std::chrono::floor<std::chrono::seconds>(date);
    return duration<double>(whole.time_since_epoch()).count() + duration<double>(date - whole).count();
}

system_clock::time_point dateSince1970(double seconds) {
    using std::chrono::microseconds;
    static constexpr auto range = std::chrono::floor<std::chrono::seconds>(system_clock::duration::max());
    static constexpr auto limit = static_cast<double>(range.count());
    const double held = std::clamp(seconds, -limit, limit);
    return system_clock::time_point(microseconds(std::llround(held * 1e6)));
}

} // namespace Korvane
