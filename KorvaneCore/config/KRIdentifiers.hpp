#pragma once

#include <string_view>

/// Names that never change: they are part of file paths, settings and messages between processes.
namespace Korvane::KRIdentifiers {

inline constexpr std::string_view appGroup = "group.app.korvane";
inline constexpr std::string_view keychainGroupSuffix = "app.korvane";
inline constexpr std::string_view keychainService = keychainGroupSuffix;
inline constexpr std::string_view urlScheme = "korvane";
inline constexpr std::string_view statusChangedNotification = "app.korvane.statusChanged";
inline constexpr std::string_view queueChangedNotification = "app.korvane.queueChanged";
inline constexpr std::string_view widgetsChangedNotification = "app.korvane.widgetsChanged";
inline constexpr std::string_view backgroundSessionIdentifier = "app.korvane.transfers";
inline constexpr std::string_view fileProviderDomain = "app.korvane.fileprovider.domain";

} // namespace Korvane::KRIdentifiers
