#pragma once

#include <cstddef>

namespace Korvane::Testing {

/// How often this program has called operator new so far, for types without special alignment. Programs that
/// link AllocationCount.cpp count.
[[nodiscard]] std::size_t allocationCount() noexcept;

} // namespace Korvane::Testing
