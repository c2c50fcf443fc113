#pragma once

#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/sync/LocalScan.hpp"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace Korvane {

/// A transfer of a file of a sync root.
struct SyncTransfer {
    std::string id;
    TransferRecord::Kind kind = TransferRecord::Kind::upload;
    std::string relPath;
    std::optional<LocalStat> source; ///< of an upload: as it was
    TransferRecord::Date since;      ///< when it was enqueued
};

/// Those in these states. Throws SQLiteError.
[[nodiscard]] std::vector<SyncTransfer> transfersOf(LocalIndex& index, const std::string& rootId,
                                                    const std::vector<TransferRecord::State>& states);

/// Which files of a sync root the transfer queue has, or had since the first look.
class QueuedUploads {
public:
    explicit QueuedUploads(std::string rootId);

    /// Throws SQLiteError.
    void look(LocalIndex& index);

    /// Whether the file waits or runs, or did at an earlier look, or has failed as what it is now: that waits
    /// for the user. A change of the file, of its permissions too, is another try.
    [[nodiscard]] bool hold(const LocalScan::Entry& file) const;

    /// Whether a transfer of the path waits or runs, or did at an earlier look.
    [[nodiscard]] bool isActive(const std::string& relPath) const;

    /// What waited or ran at this path has been cancelled.
    void forget(const std::string& relPath);

    /// By path in the root.
    [[nodiscard]] const std::map<std::string, SyncTransfer>& failed() const noexcept { return failed_; }

private:
    std::string rootId_;
    std::string prefix_; ///< of the root's dedupe keys
    std::set<std::string> active_;
    std::map<std::string, SyncTransfer> failed_;
};

} // namespace Korvane
