#include "KorvaneCore/sync/RootLedger.hpp"

#include <utility>

namespace Korvane {

RootLedger::RootLedger(std::shared_ptr<LocalIndex> index, std::shared_ptr<StatusDatabase> status,
                       SyncRoot root)
    : index_(std::move(index)), status_(std::move(status)), root_(std::move(root)) {}

std::string RootLedger::absolute(const std::string& relPath) const {
    return relPath.empty() ? root_.path : root_.path + "/" + relPath;
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

void RootLedger::markSynced(const std::vector<std::string>& relPaths) const {
    std::vector<StatusDatabase::Entry> synced;
    for (const auto& relPath : relPaths)
        if (auto path = absolute(relPath); !status_->status(path))
            synced.push_back({std::move(path), PathStatus::synced, {}});
    if (!synced.empty())
        status_->setMany(synced);
}

void RootLedger::unmark(const std::string& relPath, bool recursive) const {
    status_->remove(absolute(relPath), recursive);
}

std::optional<PathStatus> RootLedger::status(const std::string& relPath) const {
    return status_->status(absolute(relPath));
}

} // namespace Korvane
