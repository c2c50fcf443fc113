#pragma once

#include "KorvaneCore/config/KRIdentifiers.hpp"

#include <array>
#include <chrono>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>

/// The folder all processes of this user share, and the places in it. Callable from any thread. What creates
/// a folder throws FileError when it cannot.
namespace Korvane::SharedContainer {

/// Redirects the whole container, for tests and tools; set at start-up only. None ends the redirection.
void setOverrideURL(std::optional<std::filesystem::path> url);
[[nodiscard]] std::optional<std::filesystem::path> overrideURL();

/// The container, created when missing: the override; else the app group's container, or its subfolder named
/// after the build channel; else "Korvane" in the user's application support folder; else a temporary folder
/// of this user alone.
[[nodiscard]] std::filesystem::path url(std::string_view appGroup = KRIdentifiers::appGroup);

/// Where url() is or would be. Creates nothing, so readers leave no trace. Throws FileError when a temporary
/// folder stands there that is not this user's alone, and what reading the bundle throws.
[[nodiscard]] std::filesystem::path location(std::string_view appGroup = KRIdentifiers::appGroup);

/// location() with its links resolved: as file events and canonical paths have it.
[[nodiscard]] std::filesystem::path resolvedLocation();

/// The subfolder `name` of url(), created when missing.
[[nodiscard]] std::filesystem::path directory(std::string_view name,
                                              std::string_view appGroup = KRIdentifiers::appGroup);

[[nodiscard]] std::filesystem::path databaseURL();       ///< the local index
[[nodiscard]] std::filesystem::path statusDatabaseURL(); ///< path status
[[nodiscard]] std::filesystem::path offline();           ///< offline (pinned) copies
[[nodiscard]] std::filesystem::path plaintextTemp();     ///< decrypted temporary files
[[nodiscard]] std::filesystem::path cipherStaging();     ///< encrypted chunks awaiting upload

/// Where posts between the processes pass; for a NotificationCenter. Creates nothing.
[[nodiscard]] std::filesystem::path notificationFolder();

/// "uploads/camera" and "uploads/share-inbox": sources that stay until their upload finishes.
[[nodiscard]] std::array<std::filesystem::path, 2> durableUploadDirectories();

/// Removes the decrypted temporary entries last modified more than `age` ago. One that cannot be removed is
/// logged and left for the next time; a folder that cannot be listed throws FileError.
void purgePlaintextTemp(std::chrono::seconds age);

/// As purgePlaintextTemp(), for the encrypted chunks.
void purgeCipherStaging(std::chrono::seconds age);

/// Removes files that are not in `referenced` (file names): copies handed in for upload that were last
/// modified more than `graceAge` ago, and those older than 7 days in the subfolders of "uploads" that are not
/// durable.
void purgeUnreferencedUploadSources(const std::set<std::string>& referenced, std::chrono::seconds graceAge);

} // namespace Korvane::SharedContainer
