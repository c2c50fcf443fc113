#include "KorvaneCore/sync/SyncPlan.hpp"

#include <cmath>
#include <set>
#include <utility>

namespace Korvane {

namespace {

using BaseEntry = LocalIndex::BaseEntry;

constexpr double sameTime = 0.001; // seconds

bool isDatedAs(const LocalStat& stat, const BaseEntry& base) {
    return std::abs(stat.mtime - base.localMtime) < sameTime;
}

/// Moved here from where nothing is any more: by inode, and for files by size and date as well, as inodes are
/// given out again.
bool isSameMoved(const LocalStat& stat, const BaseEntry& base) {
    if (stat.isDirectory != base.isFolder || stat.inode != base.inode)
        return false;
    return base.isFolder || (stat.size == base.localSize && isDatedAs(stat, base));
}

class Planner {
public:
    Planner(const LocalScan& scan, const std::map<std::string, BaseEntry>& base) : scan_(scan), base_(base) {
        std::set<std::string> present;
        for (const auto& entry : scan.entries)
            present.insert(entry.relPath);
        for (const auto& [path, entry] : base)
            if (!present.contains(path))
                missing_.emplace(entry.inode, &entry);
    }

    SyncPlan plan() {
        for (const auto& entry : scan_.entries)
            place(entry);
        return std::move(plan_);
    }

private:
    void place(const LocalScan::Entry& entry) {
        const auto known = base_.find(entry.relPath);
        if (known != base_.end() && known->second.isFolder == entry.stat.isDirectory)
            return compare(entry, known->second);
        if (liesInMovedFolder(entry))
            return;
        const auto [first, last] = missing_.equal_range(entry.stat.inode);
        for (auto candidate = first; candidate != last; ++candidate) {
            if (!isSameMoved(entry.stat, *candidate->second))
                continue;
            plan_.moves.push_back({candidate->second->relPath, entry, *candidate->second});
            missing_.erase(candidate);
            return;
        }
        if (entry.stat.isDirectory)
            plan_.newFolders.push_back(entry);
        else
            plan_.uploads.push_back({entry, std::nullopt});
    }

    void compare(const LocalScan::Entry& entry, const BaseEntry& base) {
        if (entry.stat.isDirectory)
            plan_.unchanged.push_back(entry.relPath);
        else if (entry.stat.size != base.localSize)
            plan_.uploads.push_back({entry, base});
        else if (isDatedAs(entry.stat, base) && entry.stat.inode == base.inode)
            plan_.unchanged.push_back(entry.relPath);
        else
            plan_.doubtful.push_back({entry, base});
    }

    /// What moved along with a folder is where its base entry will be once the folder's own have moved.
    bool liesInMovedFolder(const LocalScan::Entry& entry) {
        for (const auto& move : plan_.moves) {
            if (!move.base.isFolder || !entry.relPath.starts_with(move.entry.relPath + "/"))
                continue;
            const auto before = base_.find(move.from + entry.relPath.substr(move.entry.relPath.size()));
            if (before == base_.end() || before->second.isFolder != entry.stat.isDirectory)
                return false;
            forget(before->second);
            compare(entry, before->second);
            return true;
        }
        return false;
    }

    void forget(const BaseEntry& base) {
        const auto [first, last] = missing_.equal_range(base.inode);
        for (auto candidate = first; candidate != last; ++candidate)
            if (candidate->second->relPath == base.relPath) {
                missing_.erase(candidate);
                return;
            }
    }

    const LocalScan& scan_;
    const std::map<std::string, BaseEntry>& base_;
    std::multimap<std::uint64_t, const BaseEntry*> missing_; ///< by inode
    SyncPlan plan_;
};

} // namespace

SyncPlan planSync(const LocalScan& scan, const std::map<std::string, BaseEntry>& base) {
    return Planner(scan, base).plan();
}

} // namespace Korvane
