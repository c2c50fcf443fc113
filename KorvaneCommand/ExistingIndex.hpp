#pragma once

#include <filesystem>

namespace Korvane {

/// The file of the local index. Creates nothing, and throws when there is none.
[[nodiscard]] std::filesystem::path existingIndex();

} // namespace Korvane
