#pragma once

#include "KorvaneCore/platform/FileLock.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/StatusDatabase.hpp"

#include <optional>
#include <string>

/// What this device keeps of an account beside its keys: the local index, the states of paths, offline copies
/// and what the widgets show. Throws SQLiteError, and FileError where there is no container.
namespace Korvane::AccountData {

/// The lock of the process that may move the account's files, in the container.
inline constexpr const char* lockFile = "locks/queue.lock";

/// Keeps others from moving the account's files until it is released; none while one does. Throws FileError.
[[nodiscard]] std::optional<FileLock> tryClaim();

/// The same. Throws std::runtime_error while another process moves them.
[[nodiscard]] FileLock claim();

/// Forgets it when it is another account's: its transfers would go to the wrong place. Throws what claim()
/// throws.
void keepTo(const std::string& userId, LocalIndex& index, StatusDatabase& status);

/// Forgets it, where there is any. Under a claim().
void forget();

} // namespace Korvane::AccountData
