#pragma once

#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/media/Thumbnail.hpp"
#include "KorvaneCore/widget/WidgetStore.hpp"

namespace Korvane::Testing {

/// 2026-11-21 in UTC.
inline KRJSON::Date aDay() {
    return KRJSON::parseDate("2026-11-21T10:45:00Z").value();
}

inline std::string aJPEG() {
    return makeThumbnail(KORVANE_SOURCE_DIR "/examples/lake.jpg", 64);
}

inline WidgetSnapshot withPins(std::size_t count) {
    WidgetSnapshot snapshot;
    for (std::size_t i = 0; i < count; ++i)
        snapshot.pins.push_back(
            {"id-" + std::to_string(i), false, "name " + std::to_string(i), "text/plain"});
    return snapshot;
}

inline WidgetSnapshot withPhoto(std::int64_t yearsAgo = 3) {
    WidgetSnapshot snapshot;
    snapshot.onThisDay =
        WidgetSnapshot::Photo{"photo-id", "lake.jpg", yearsAgo, "2026-11-21", "lake-thumb.jpg"};
    return snapshot;
}

} // namespace Korvane::Testing
