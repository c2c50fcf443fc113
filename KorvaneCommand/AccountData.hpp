#pragma once

#include "KorvaneCore/platform/FileLock.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/StatusDatabase.hpp"

#include <string>

/// What this device keeps of an account beside its keys: the local index, the states of paths, offline copies
/// and what the widgets show. Throws SQLiteError, and FileError where there is no container.
namespace Korvane::AccountData {

/// Keeps others from moving the account's files until it is released. Throws std::runtime_error while one
/// does.
[[nodiscard]] FileLock claim();

/// Forgets it when it is another account's: its transfers would go to the wrong place. Throws what claim()
/// throws.
void keepTo(const std::string& userId, LocalIndex& index, StatusDatabase& status);

/// Forgets it, where there is any. Under a claim().
void forget();

} // namespace Korvane::AccountData
