#pragma once

#include <cstdio>

namespace Korvane {

/// What a program ends with: `status`, or 1 with a message on standard error when its answer could not be
/// written to standard output (a full disk, a closed pipe).
[[nodiscard]] int exitStatus(const char* program, int status);

/// Whether people read what goes to the stream.
[[nodiscard]] bool isTerminal(std::FILE* stream) noexcept;

} // namespace Korvane
