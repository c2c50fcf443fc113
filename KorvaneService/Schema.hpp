#pragma once

#include "KorvaneCore/storage/SQLiteDatabase.hpp"

namespace Korvane {

/// Makes the service's tables where they are missing. Times are REAL seconds since 1970.
void createServiceTables(SQLiteDatabase& database);

} // namespace Korvane
