#pragma once

#include "KorvaneCore/background/TransferMessages.hpp"

#include <string>
#include <vector>

/// Results nobody has collected, from one helper to the next. Their tasks are numbered -1, -2, … so that no
/// client takes them for its own.
namespace Korvane::KeptResults {

/// Takes what an earlier helper left; what cannot be read is logged and forgotten.
[[nodiscard]] std::vector<TransferMessages::TaskResult> take(const std::string& identifier);

/// Throws FileError.
void leave(const std::string& identifier, std::vector<TransferMessages::TaskResult> results);

} // namespace Korvane::KeptResults
