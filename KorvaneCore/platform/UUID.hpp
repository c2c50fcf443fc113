#pragma once

#include <string>

namespace Korvane {

/// A new random UUID (RFC 4122, version 4) in lower case. Callable from any thread.
[[nodiscard]] std::string newUUID();

} // namespace Korvane
