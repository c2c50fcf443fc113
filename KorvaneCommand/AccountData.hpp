#pragma once

#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/StatusDatabase.hpp"

#include <filesystem>
#include <memory>

/// What this device keeps of an account beside its keys: the local index with its transfers, the states of
/// paths, the offline copies and what the widgets show. Throws SQLiteError and FileError.
namespace Korvane::AccountData {

/// The lock of the process that runs the queue. Nobody else may empty the data.
[[nodiscard]] std::filesystem::path queueLock();

/// Offline copies that the user changed stay on the disk.
void empty(const std::shared_ptr<LocalIndex>& index, StatusDatabase& status);

/// Empties what there is.
void emptyAll();

} // namespace Korvane::AccountData
