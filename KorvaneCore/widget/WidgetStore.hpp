#pragma once

#include "KorvaneCore/widget/WidgetSnapshot.hpp"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string_view>

/// The widget folder of the shared container. Any process may read while one publishes: files are replaced
/// whole, so a reader sees the old or the new one, and no lock is taken. Callable from any thread.
namespace Korvane::WidgetStore {

inline constexpr std::size_t maxPins = 8;
inline constexpr std::size_t maxSnapshotSize = std::size_t{1} << 20;  ///< bytes of JSON
inline constexpr std::size_t maxThumbnailSize = std::size_t{8} << 20; ///< bytes of JPEG

/// The user's choice to show "Content hidden" instead of names and photos; off by default. Throws what the
/// shared defaults throw, and setting it FileError when it could not be announced
/// (KRIdentifiers::widgetsChangedNotification). It counts from the next publication on.
[[nodiscard]] bool hideContent();
void setHideContent(bool hide);

/// Where the snapshot is or will be. Creates nothing; likewise thumbnailURL and load.
[[nodiscard]] std::filesystem::path snapshotURL();

/// The photo's thumbnail: a place in the widget folder itself, whatever the name says; the folder when it
/// names no file.
[[nodiscard]] std::filesystem::path thumbnailURL(const WidgetSnapshot::Photo& photo);

/// The published snapshot; none when it is missing, larger than maxSnapshotSize, or no snapshot.
[[nodiscard]] std::optional<WidgetSnapshot> load();

/// Publishes a snapshot: the thumbnail (a JPEG, when the snapshot has a photo) under its `thumbnailFile`
/// first, then the snapshot, so a new snapshot never names a file that is not there; then removes thumbnails
/// no longer named. While the user hides content, WidgetSnapshot::hidden is published instead. Returns what
/// was published. Waits for other publishers. Throws std::invalid_argument, before anything is written, when
/// the snapshot has more than maxPins pins, is hidden and yet holds content, has a photo without thumbnail or
/// the reverse, a thumbnail name that is no plain file name, text that is not UTF-8, or too large content;
/// FileError when the container cannot be written.
WidgetSnapshot save(const WidgetSnapshot& snapshot, std::optional<std::string_view> thumbnail);

/// Removes the snapshot and then every thumbnail, as after signing out. Throws FileError.
void clear();

} // namespace Korvane::WidgetStore
