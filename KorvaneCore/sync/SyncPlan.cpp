#include "KorvaneCore/sync/SyncPlan.hpp"

#include <cmath>
#include <ranges>
#include <utility>

namespace Korvane {

namespace {

using BaseEntry = LocalIndex::BaseEntry;

constexpr double sameTime = 0.001; // seconds

bool isDatedAs(const LocalStat& stat, const BaseEntry& base) {
    return std::abs(stat.mtime - base.localMtime) < sameTime;
}

/// By inode, and by size and date as well, as inodes are given out again.
bool isSameFile(const LocalStat& stat, const BaseEntry& base) {
    return stat.inode == base.inode && stat.size == base.localSize && isDatedAs(stat, base);
}

class Planner {
public:
    Planner(const LocalScan& scan, const std::map<std::string, BaseEntry>& base,
            std::chrono::system_clock::time_point lookedAt)
        : scan_(scan), base_(base), lookedAt_(lookedAt) {
        for (const auto& entry : scan.entries)
            present_.emplace(entry.relPath, &entry.stat);
        for (const auto& [path, entry] : base)
            if (!present_.contains(path))
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
            if (!wasMoved(*candidate->second, entry))
                continue;
            plan_.steps.emplace_back(SyncPlan::Move{candidate->second->relPath, entry, *candidate->second});
            if (entry.stat.isDirectory)
                movedFolders_.emplace_back(candidate->second->relPath, entry.relPath);
            missing_.erase(candidate);
            return;
        }
        if (entry.stat.isDirectory)
            plan_.steps.emplace_back(entry);
        else
            plan_.uploads.push_back({entry, std::nullopt});
    }

    /// Whether what is missing at its old path is what lies here now. Of a folder, whose size and date say
    /// nothing, something of the same name must be the same below it too, unless both are empty.
    [[nodiscard]] bool wasMoved(const BaseEntry& from, const LocalScan::Entry& to) const {
        if (from.isFolder != to.stat.isDirectory)
            return false;
        if (!from.isFolder)
            return isSameFile(to.stat, from);
        const auto before = from.relPath + "/";
        const auto after = to.relPath + "/";
        bool isEmpty = true;
        for (auto known = base_.lower_bound(before); known != base_.end() && known->first.starts_with(before);
             ++known) {
            isEmpty = false;
            const auto now = present_.find(after + known->first.substr(before.size()));
            if (now != present_.end() && known->second.isFolder == now->second->isDirectory &&
                now->second->inode == known->second.inode)
                return true;
        }
        const auto inside = present_.lower_bound(after);
        return isEmpty && (inside == present_.end() || !inside->first.starts_with(after));
    }

    void compare(const LocalScan::Entry& entry, const BaseEntry& base) {
        const bool mayBeOther = entry.changed > lookedAt_ && base.sha256;
        if (entry.stat.isDirectory || (isSameFile(entry.stat, base) && !mayBeOther))
            plan_.unchanged.push_back(entry.relPath);
        else if (entry.stat.size != base.localSize)
            plan_.uploads.push_back({entry, base});
        else
            plan_.doubtful.push_back({entry, base});
    }

    /// What moved along with a folder is where its base entry will be once the folder's own have moved.
    bool liesInMovedFolder(const LocalScan::Entry& entry) {
        for (const auto& [from, to] : movedFolders_ | std::views::reverse) { // inner ones first
            if (!entry.relPath.starts_with(to + "/"))
                continue;
            const auto before = base_.find(from + entry.relPath.substr(to.size()));
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
    std::chrono::system_clock::time_point lookedAt_;
    std::map<std::string, const LocalStat*> present_;
    std::vector<std::pair<std::string, std::string>> movedFolders_; ///< from, to
    std::multimap<std::uint64_t, const BaseEntry*> missing_;        ///< by inode
    SyncPlan plan_;
};

} // namespace

SyncPlan planSync(const LocalScan& scan, const std::map<std::string, BaseEntry>& base,
                  std::chrono::system_clock::time_point lookedAt) {
    return Planner(scan, base, lookedAt).plan();
}

} // namespace Korvane
