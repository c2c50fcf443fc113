#pragma once

#include "KorvaneCore/queue/LocalStat.hpp"

#include <exception>
#include <filesystem>

namespace Korvane {

/// Throws KRCryptoError (FileChangedDuringRead) unless the file is still the one that was looked at.
void requireUnchanged(const std::filesystem::path& file, const LocalStat& stat);

/// The result of `work`, which reads the file. When that fails because the file has changed or is gone, this
/// throws what requireUnchanged() does, else what `work` threw.
template <class Work>
auto whileUnchanged(const std::filesystem::path& file, const LocalStat& stat, Work work) {
    try {
        return work();
    } catch (const std::exception&) {
        requireUnchanged(file, stat);
        throw;
    }
}

} // namespace Korvane
