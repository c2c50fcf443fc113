#include "KorvaneCore/widget/WidgetSnapshot.hpp"

#include "KorvaneCore/platform/LocalCalendar.hpp"

namespace Korvane {

const WidgetSnapshot WidgetSnapshot::hidden{.contentHidden = true, .pins = {}, .onThisDay = std::nullopt};

std::string WidgetSnapshot::dayKey(std::chrono::system_clock::time_point date) {
    return LocalCalendar::dayKey(date);
}

} // namespace Korvane
