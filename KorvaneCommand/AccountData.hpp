#pragma once

#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/StatusDatabase.hpp"

#include <string>

/// What this device keeps of an account beside its keys: the local index and the states of paths. Throws
/// SQLiteError, and FileError where there is no container.
namespace Korvane::AccountData {

/// Empties both when they are another account's: its transfers would go to the wrong place.
void keepTo(const std::string& userId, LocalIndex& index, StatusDatabase& status);

/// Empties both, where there are any.
void forget();

} // namespace Korvane::AccountData
