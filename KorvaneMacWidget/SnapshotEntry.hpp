#pragma once

#include "KorvaneCore/widget/WidgetSnapshot.hpp"

#include <chrono>
#include <optional>

namespace Korvane {

/// A moment of a timeline. Without a snapshot the user counts as signed out.
struct SnapshotEntry {
    std::chrono::system_clock::time_point date;
    std::optional<WidgetSnapshot> snapshot;

    friend bool operator==(const SnapshotEntry&, const SnapshotEntry&) = default;
};

} // namespace Korvane
