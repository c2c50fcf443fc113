#pragma once

#include "KorvaneCore/storage/SQLiteDatabase.hpp"

#include <cstdint>

/// The tables of the local index, by version.
namespace Korvane::IndexSchema {

inline constexpr std::int32_t currentVersion = 4;

/// Brings the tables up to the current version, each step whole or not at all; a newer version is left as it
/// is. Several processes may do so at once. Throws SQLiteError.
void migrate(SQLiteDatabase& database);

} // namespace Korvane::IndexSchema
