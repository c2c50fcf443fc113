#pragma once

#include "KorvaneCommand/doctor/Finding.hpp"

/// Looks at an installation and its user's data without changing either, except that SQLite may leave its
/// empty "-wal" and "-shm" files beside a database. None throws for what it looks for.
namespace Korvane::Checks {

/// The programs and property list that belong beside this one.
[[nodiscard]] Findings installation();

/// The shared container: there, closed to others, writable, with room.
[[nodiscard]] Findings container();

/// Every local database: readable, undamaged, of a known version.
[[nodiscard]] Findings databases();

/// Which keychain is used, and whether it answers.
[[nodiscard]] Findings keychain();

/// Whether every folder below the sync roots can be watched.
[[nodiscard]] Findings fileEvents();

/// The service: its address, its certificate, whether it answers, its clock, and what it says to the sign-in
/// stored here. Waits for at most 20 s. Renews no token.
[[nodiscard]] Findings service();

/// Processes at work on the container, and whether they answer.
[[nodiscard]] Findings processes();

} // namespace Korvane::Checks
