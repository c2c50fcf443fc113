#include "KorvaneCore/sync/RootLedger.hpp"

#include <utility>

namespace Korvane {

RootLedger::RootLedger(std::shared_ptr<LocalIndex> index, std::shared_ptr<StatusDatabase> status,
                       SyncRoot root)
    : index_(std::move(index)), status_(std::move(status)), root_(std::move(root)) {}

std::string RootLedger::absolute(const std::string& relPath) const {
    return relPath.empty() ? root_.path : root_.path + "/" + relPath;
}

std::chrono::system_clock::time_point RootLedger::lookedAt() const {
    return SyncRoots::lookedAt(*index_, root_.id);
}

void RootLedger::setLookedAt(std::chrono::system_clock::time_point time) const {
    SyncRoots::setLookedAt(*index_, root_.id, time);
}

RootLedger::Base RootLedger::base() const {
    return index_->baseEntries(root_.id);
}

void RootLedger::setBase(const LocalScan::Entry& entry, const std::string& itemId, std::int64_t version,
                         const std::optional<std::string>& sha256) const {
    const auto& stat = entry.stat;
    index_->setBase(root_.id, {entry.relPath, itemId, stat.isDirectory, version, stat.size, stat.mtime,
                               stat.inode, sha256});
}

void RootLedger::removeBase(const std::string& relPath, bool recursive) const {
    index_->removeBase(root_.id, relPath, recursive);
}

void RootLedger::moveBase(const std::string& from, const std::string& to) const {
    index_->moveBase(root_.id, from, to);
}

void RootLedger::mark(const std::string& relPath, PathStatus status,
                      const std::optional<std::string>& itemId) const {
    status_->set(status, absolute(relPath), itemId);
}

void RootLedger::markAll(const std::vector<std::string>& relPaths, PathStatus status) const {
    std::vector<StatusDatabase::Entry> entries;
    entries.reserve(relPaths.size());
    for (const auto& relPath : relPaths)
        entries.push_back({absolute(relPath), status, {}});
    if (!entries.empty())
        status_->setMany(entries);
}

void RootLedger::unmark(const std::string& relPath, bool recursive) const {
    status_->remove(absolute(relPath), recursive);
}

std::optional<PathStatus> RootLedger::status(const std::string& relPath) const {
    return status_->status(absolute(relPath));
}

std::map<std::string, PathStatus> RootLedger::statuses() const {
    std::map<std::string, PathStatus> byRelPath;
    for (const auto& [path, status] : status_->statusesBelow(root_.path))
        byRelPath.emplace(path.substr(root_.path.size() + 1), status);
    return byRelPath;
}

std::optional<std::string> RootLedger::pathOf(const std::string& itemId) const {
    for (const auto& base : index_->basesOf(itemId))
        if (base.rootId == root_.id)
            return base.entry.relPath;
    return std::nullopt;
}

} // namespace Korvane
