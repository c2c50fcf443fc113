#pragma once

#include "KorvaneCore/storage/SQLValue.hpp"

#include <cstdint>
#include <optional>
#include <string_view>

namespace Korvane {

/// The sync state of a local path.
enum class PathStatus : std::uint8_t { synced, syncing, queued, conflict, error, excluded };

/// The name of the state's badge, which is also its text in the database: "synced", "syncing", ….
[[nodiscard]] std::string_view badgeIdentifier(PathStatus status);

/// The state of this text; none for any other text.
[[nodiscard]] std::optional<PathStatus> pathStatus(std::string_view text);

[[nodiscard]] inline SQLValue sqlValue(PathStatus status) {
    return sqlValue(badgeIdentifier(status));
}

} // namespace Korvane
