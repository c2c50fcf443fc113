#pragma once

#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/StatusDatabase.hpp"
#include "KorvaneCore/sync/LocalScan.hpp"
#include "KorvaneCore/sync/SyncRoots.hpp"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

/// What is written down of a sync root: the state it was last reconciled in, and the states of its paths.
/// Throws SQLiteError.
class RootLedger {
public:
    using Base = std::map<std::string, LocalIndex::BaseEntry>; ///< by path

    RootLedger(std::shared_ptr<LocalIndex> index, std::shared_ptr<StatusDatabase> status, SyncRoot root);

    [[nodiscard]] const SyncRoot& root() const noexcept { return root_; }

    /// See SyncRoots.
    [[nodiscard]] std::chrono::system_clock::time_point lookedAt() const;
    void setLookedAt(std::chrono::system_clock::time_point time) const;

    [[nodiscard]] std::string absolute(const std::string& relPath) const;

    [[nodiscard]] Base base() const;
    void setBase(const LocalScan::Entry& entry, const std::string& itemId, std::int64_t version,
                 const std::optional<std::string>& sha256) const;
    void removeBase(const std::string& relPath, bool recursive) const;

    /// With everything below it.
    void moveBase(const std::string& from, const std::string& to) const;

    void mark(const std::string& relPath, PathStatus status,
              const std::optional<std::string>& itemId = {}) const;

    void markAll(const std::vector<std::string>& relPaths, PathStatus status) const;

    /// What is no longer there has no state.
    void unmark(const std::string& relPath, bool recursive) const;

    [[nodiscard]] std::optional<PathStatus> status(const std::string& relPath) const;

    /// Of everything below the root that has a state.
    [[nodiscard]] std::map<std::string, PathStatus> statuses() const;

    /// Where the item was last reconciled; none when it was not.
    [[nodiscard]] std::optional<std::string> pathOf(const std::string& itemId) const;

private:
    std::shared_ptr<LocalIndex> index_;
    std::shared_ptr<StatusDatabase> status_;
    SyncRoot root_;
};

} // namespace Korvane
