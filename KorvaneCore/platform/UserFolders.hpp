#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

/// Where this user's data lives, by the XDG base directory rules. Nothing here creates a folder. Relative
/// values of the environment variables are ignored, as those rules ask.
namespace Korvane::UserFolders {

/// The folder shared by all programs of an app group: "$XDG_DATA_HOME/<group>", by default
/// "~/.local/share/<group>". None when neither XDG_DATA_HOME nor HOME is set.
[[nodiscard]] std::optional<std::filesystem::path> groupContainer(std::string_view appGroup);

/// The data folder of the account's home in the user database, for processes started without an environment.
/// None when the account has no home folder there.
[[nodiscard]] std::optional<std::filesystem::path> applicationSupport();

/// A temporary folder of this user alone: a subfolder of $TMPDIR, by default of /tmp, named after the user
/// id.
[[nodiscard]] std::filesystem::path temporary();

} // namespace Korvane::UserFolders
