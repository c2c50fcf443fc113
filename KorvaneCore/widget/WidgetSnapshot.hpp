#pragma once

#include <boost/describe/class.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

/// All that the widgets show, published by the application as one JSON file. Names are decrypted.
struct WidgetSnapshot {
    struct Pin {
        std::string id; ///< of the item in the local index
        bool isFolder = false;
        std::string name;
        std::optional<std::string> mime; ///< of a file

        friend bool operator==(const Pin&, const Pin&) = default;
    };

    struct Photo {
        std::string id;
        std::string name;
        std::int64_t yearsAgo = 0; ///< whole years between the photo's date and `day`
        std::string day;           ///< day key of the day the snapshot was composed for
        std::string thumbnailFile; ///< a JPEG's file name in the widget folder

        friend bool operator==(const Photo&, const Photo&) = default;
    };

    bool contentHidden = false;
    std::vector<Pin> pins; ///< in display order, at most WidgetStore::maxPins
    std::optional<Photo> onThisDay;

    /// What is shown while the user hides widget content.
    static const WidgetSnapshot hidden;

    /// The date's day in the user's calendar, "%04d-%02d-%02d".
    [[nodiscard]] static std::string dayKey(std::chrono::system_clock::time_point date);

    friend bool operator==(const WidgetSnapshot&, const WidgetSnapshot&) = default;
};
BOOST_DESCRIBE_STRUCT(WidgetSnapshot::Pin, (), (id, isFolder, name, mime))
BOOST_DESCRIBE_STRUCT(WidgetSnapshot::Photo, (), (id, name, yearsAgo, day, thumbnailFile))
BOOST_DESCRIBE_STRUCT(WidgetSnapshot, (), (contentHidden, pins, onThisDay))

} // namespace Korvane
