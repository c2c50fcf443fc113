#pragma once

#include <filesystem>
#include <string>
#include <string_view>

/// The places of a background session in the shared container.
namespace Korvane::SessionFiles {

/// Whether the text can be a session's identifier, or the name of a staged file: letters, digits, ".", "-"
/// and
/// "_", at most 100, not beginning with ".".
[[nodiscard]] bool isName(std::string_view text) noexcept;

/// Where sockets and results lie, in the container.
inline constexpr std::string_view folderName = "transfers";

// These throw FileError, and std::invalid_argument for what is no name.

/// Where the session's helper listens. Its folder is created when missing, for this user alone.
[[nodiscard]] std::filesystem::path socket(std::string_view identifier);

/// Results no client has collected yet, while no helper runs.
[[nodiscard]] std::filesystem::path results(std::string_view identifier);

/// A file in the folder for encrypted chunks.
[[nodiscard]] std::filesystem::path staged(std::string_view name);

/// Names of cross-process locks: held by the helper while it lives, and by a client that starts one.
[[nodiscard]] std::string helperLock(std::string_view identifier);
[[nodiscard]] std::string startLock(std::string_view identifier);

} // namespace Korvane::SessionFiles
