#include "KorvaneCore/storage/PathStatus.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace Korvane {

namespace {

/// In the order of the cases.
constexpr std::array<std::string_view, 6> texts{"synced",   "syncing", "queued",
                                                "conflict", "error",   "excluded"};

} // namespace

std::string_view badgeIdentifier(PathStatus status) {
    return texts.at(static_cast<std::size_t>(status));
}

std::optional<PathStatus> pathStatus(std::string_view text) {
    const auto* found = std::ranges::find(texts, text);
    return found == texts.end() ? std::nullopt
                                : std::optional(static_cast<PathStatus>(found - texts.begin()));
}

} // namespace Korvane
