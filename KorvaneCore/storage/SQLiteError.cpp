#include "KorvaneCore/storage/SQLiteError.hpp"

#include <utility>

namespace Korvane {

SQLiteError::SQLiteError(std::int32_t code, std::string message)
    : std::runtime_error("SQLite error " + std::to_string(code) + ": " + message),
      code_(code),
      message_(std::move(message)) {}

} // namespace Korvane
