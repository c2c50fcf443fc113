#pragma once

#include "KorvaneCore/queue/LocalStat.hpp"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace Korvane {

/// What lies below a sync root.
struct LocalScan {
    struct Entry {
        std::string relPath; ///< "/"-separated
        LocalStat stat;
        std::chrono::system_clock::time_point changed{}; ///< last, its permissions and owner included
    };

    struct Skipped {
        std::string relPath; ///< may be no UTF-8
        std::string reason;  ///< what users are shown
    };

    std::vector<Entry> entries; ///< folders before what is in them
    std::vector<Skipped> skipped;
    bool isComplete = true; ///< false when something could not be looked at
};

/// Whether a scan lists what isNoise(). Partial downloads it never does.
enum class Noise : std::uint8_t { leftOut, listed };

/// Lists everything below the folder. Links are not followed; links, special files and names that are no
/// UTF-8 are skipped, as is what cannot be looked at; noise and the folder `leftOut` are left out without a
/// word. Blocking. Throws FileError when the root itself cannot be listed.
[[nodiscard]] LocalScan scanFolder(const std::filesystem::path& root,
                                   const std::filesystem::path& leftOut = {}, Noise noise = Noise::leftOut);

} // namespace Korvane
