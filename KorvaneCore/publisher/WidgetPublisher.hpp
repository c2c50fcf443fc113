#pragma once

#include "KorvaneCore/platform/LocalCalendar.hpp"
#include "KorvaneCore/sync/LocalCopies.hpp"
#include "KorvaneCore/widget/WidgetSnapshot.hpp"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace Korvane {

/// Composes what the widgets show from the local index and publishes it.
///
/// The pins are the first live ones in the order they were pinned in. The photo is one of today's month and
/// day in an earlier year, in the user's calendar, by contentDate(), whose bytes are on this device: of the
/// latest such year the earliest, then by identifier, passing over those no thumbnail can be made of.
///
/// One call at a time. Reads files and decodes pictures, so not on an event thread.
class WidgetPublisher {
public:
    using Time = std::chrono::system_clock::time_point;

    WidgetPublisher(std::shared_ptr<LocalIndex> index, const std::filesystem::path& offlineFolder);

    struct Publication {
        WidgetSnapshot snapshot; ///< what the widgets show now
        bool isNew = false;      ///< false when that was published already, and nothing was written
    };

    /// Publishes for the day of `now`; while the user hides content, just that. Throws SQLiteError, and what
    /// WidgetStore::save() throws.
    Publication publish(Time now);

private:
    struct Photo {
        WidgetSnapshot::Photo shown;
        std::string thumbnail; ///< JPEG
    };

    [[nodiscard]] std::vector<WidgetSnapshot::Pin> pins();
    [[nodiscard]] std::optional<Photo> onThisDay(Time now, const std::optional<WidgetSnapshot>& published);
    [[nodiscard]] std::optional<Photo> photoOf(const LocalCalendar::Day& day, Time now,
                                               const std::optional<WidgetSnapshot>& published);
    [[nodiscard]] std::optional<std::string> thumbnailOf(const WidgetSnapshot::Photo& photo,
                                                         const LocalCopies::Copy& copy,
                                                         const std::optional<WidgetSnapshot>& published);

    std::shared_ptr<LocalIndex> index_;
    LocalCopies copies_;
    std::set<std::string> notPictures_; // thumbnail files that could not be made, not to be tried again
};

} // namespace Korvane
