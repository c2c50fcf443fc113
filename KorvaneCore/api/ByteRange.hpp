#pragma once

#include <cstdint>

namespace Korvane {

/// The bytes from `first` up to, not including, `end`.
struct ByteRange {
    std::int64_t first = 0;
    std::int64_t end = 0;

    bool operator==(const ByteRange&) const = default;
};

} // namespace Korvane
