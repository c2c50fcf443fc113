#pragma once

#include "KorvaneCore/widget/WidgetSnapshot.hpp"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

/// What to compose a snapshot from: files, folders and a photo of this computer.
struct LocalSnapshotSources {
    std::vector<std::filesystem::path> pins; ///< in display order
    std::optional<std::filesystem::path> photo;
    std::optional<int> yearsAgo; ///< of the photo; by default from its modification date, at least 1
};

struct LocalSnapshot {
    WidgetSnapshot snapshot;
    std::optional<std::string> thumbnail; ///< JPEG of the photo
};

/// Reads the sources and composes the snapshot for the day of `now`. Items are identified by a UUID made from
/// their absolute path, so the same file keeps its identifier. Throws FileError for a source that cannot be
/// read and ThumbnailError for a photo that is no picture.
[[nodiscard]] LocalSnapshot composeLocalSnapshot(const LocalSnapshotSources& sources,
                                                 std::chrono::system_clock::time_point now);

} // namespace Korvane
