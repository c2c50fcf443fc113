#include "tests/support/StatementFailure.hpp"

#include <sqlite3.h>

#include <atomic>

namespace Korvane::Testing {

namespace {

/// Questions still to be granted; below 0 once one was refused.
std::atomic<int> left;   // NOLINT: SQLite's hook for new connections carries no data of its own
std::atomic<bool> armed; // NOLINT

int authorize(void* /*data*/, int /*action*/, const char* /*first*/, const char* /*second*/,
              const char* /*database*/, const char* /*trigger*/) {
    return armed && left.fetch_sub(1) == 0 ? SQLITE_DENY : SQLITE_OK;
}

int opened(sqlite3* connection, const char** /*error*/, const sqlite3_api_routines* /*routines*/) {
    return sqlite3_set_authorizer(connection, &authorize, nullptr);
}

void (*entryPoint())() {
    return reinterpret_cast<void (*)()>(&opened);
}

} // namespace

StatementFailure::StatementFailure() {
    sqlite3_auto_extension(entryPoint());
}

StatementFailure::~StatementFailure() {
    armed = false;
    sqlite3_cancel_auto_extension(entryPoint());
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): one lives at a time
void StatementFailure::refuseAfter(int questions) {
    left = questions;
    armed = true;
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
bool StatementFailure::disarm() {
    armed = false;
    return left < 0;
}

} // namespace Korvane::Testing
