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
        /// Last, its permissions and owner included.
        std::chrono::system_clock::time_point
            changed{}; // NOLINT(readability-redundant-member-init): optional
    };

    enum class Why : std::uint8_t {
        noise,      ///< see isNoise()
        unsuitable, ///< neither file nor folder, or its name is no UTF-8
        unreadable, ///< perhaps not for ever
    };

    struct Skipped {
        std::string relPath; ///< may be no UTF-8
        Why why = Why::unsuitable;
        std::string reason; ///< what users are shown
    };

    std::vector<Entry> entries; ///< folders before what is in them
    std::vector<Skipped> skipped;
    bool isComplete = true; ///< false when something could not be looked at
};

/// Whether a scan lists what isNoise(). Partial downloads it never does.
enum class Noise : std::uint8_t { skipped, listed };

/// Lists everything below the folder. Links are not followed; links, special files and names that are no
/// UTF-8 are skipped, as are noise and what cannot be looked at; partial downloads and the folder `leftOut`
/// are left out without a word. Blocking. Throws FileError when the root itself cannot be listed.
[[nodiscard]] LocalScan scanFolder(const std::filesystem::path& root,
                                   const std::filesystem::path& leftOut = {}, Noise noise = Noise::skipped);

} // namespace Korvane
