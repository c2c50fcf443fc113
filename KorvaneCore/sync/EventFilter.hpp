#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Korvane {

/// Whether changes to the path are of no concern, by its last component: the desktop's bookkeeping files,
/// editors' temporary files, and this system's own partial downloads.
[[nodiscard]] bool isNoise(std::string_view path);

/// Whether the path is a download of this system's that is still being written, by its last component.
[[nodiscard]] bool isPartialDownload(std::string_view path);

/// Whether a batch of changed paths calls for a reconcile: at once with `rescan`, else when a path is neither
/// noise nor the engine's own write. `isOwnWrite` is asked path by path, up to the first that is none.
[[nodiscard]] bool callsForReconcile(const std::vector<std::string>& paths, bool rescan,
                                     const std::function<bool(const std::string& path)>& isOwnWrite);

} // namespace Korvane
