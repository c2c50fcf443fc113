#pragma once

#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/sync/LocalScan.hpp"

#include <chrono>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace Korvane {

/// What a scan of a sync root asks for, held against what was last reconciled. A value, without I/O. What is
/// missing here asks for nothing: deletions are not decided by one look.
struct SyncPlan {
    using BaseEntry = LocalIndex::BaseEntry;

    struct Upload {
        LocalScan::Entry entry;
        std::optional<BaseEntry> base; ///< the file it is a new version of
    };

    struct Move {
        std::string from;
        LocalScan::Entry entry;
        BaseEntry base; ///< under its old path
    };

    using NewFolder = LocalScan::Entry;

    /// Each can be taken once those before it have been: a folder comes before what goes into it. A `from`
    /// is the path before the first step.
    std::vector<std::variant<NewFolder, Move>> steps;
    std::vector<Upload> uploads;
    std::vector<Upload> doubtful; ///< as large as before, but dated otherwise or touched: the content decides
    std::vector<std::string> unchanged;
};

/// What was touched since `lookedAt` is doubtful even when it looks as before: looks can be restored. Files
/// that were moved are told by their looks alone.
[[nodiscard]] SyncPlan planSync(const LocalScan& scan,
                                const std::map<std::string, LocalIndex::BaseEntry>& base,
                                std::chrono::system_clock::time_point lookedAt);

} // namespace Korvane
