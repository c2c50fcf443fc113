#include "KorvaneMacWidget/SnapshotProvider.hpp"

#include "KorvaneCore/platform/LocalCalendar.hpp"
#include "KorvaneCore/widget/WidgetStore.hpp"

namespace Korvane::SnapshotProvider {

namespace {

constexpr std::chrono::seconds dayLength{86'400};

} // namespace

SnapshotEntry placeholder(Time now) {
    return {now, WidgetSnapshot::hidden};
}

SnapshotEntry snapshot(Time now) {
    return {now, WidgetStore::load()};
}

Timeline timeline(Time now) {
    return {{snapshot(now)}, LocalCalendar::nextStartOfDay(now).value_or(now + dayLength)};
}

} // namespace Korvane::SnapshotProvider
