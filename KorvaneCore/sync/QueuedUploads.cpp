#include "KorvaneCore/sync/QueuedUploads.hpp"

#include "KorvaneCore/queue/TransferJob.hpp"

#include <utility>

namespace Korvane {

namespace {

std::string keyOf(const std::string& rootId, const std::string& relPath) {
    return TransferOrigin(TransferOrigin::Sync{rootId, relPath}).dedupeKey().value_or("");
}

} // namespace

std::vector<SyncTransfer> transfersOf(LocalIndex& index, const std::string& rootId,
                                      const std::vector<TransferRecord::State>& states) {
    std::vector<SyncTransfer> found;
    for (const auto& record : index.transfers(states, -1)) {
        const auto job = readableJob(record);
        if (!job)
            continue;
        const auto origin = originOf(*job);
        const auto* sync = origin.as<TransferOrigin::Sync>();
        if (sync == nullptr || sync->rootId != rootId)
            continue;
        const auto* upload = std::get_if<UploadJob>(&*job);
        found.push_back({record.id, record.kind, sync->relPath,
                         upload != nullptr ? upload->sourceStat : std::nullopt, record.createdAt});
    }
    return found;
}

QueuedUploads::QueuedUploads(std::string rootId) : rootId_(std::move(rootId)), prefix_(keyOf(rootId_, "")) {}

void QueuedUploads::look(LocalIndex& index) {
    active_.merge(index.activeDedupeKeys(prefix_));
    failed_.clear();
    for (const auto& transfer : transfersOf(index, rootId_, {TransferRecord::State::failed}))
        if (transfer.kind == TransferRecord::Kind::upload)
            failed_.insert_or_assign(transfer.relPath, transfer);
}

bool QueuedUploads::hold(const LocalScan::Entry& file) const {
    if (isActive(file.relPath))
        return true;
    const auto failed = failed_.find(file.relPath);
    return failed != failed_.end() && failed->second.source == file.stat &&
           file.changed <= failed->second.since;
}

void QueuedUploads::forget(const std::string& relPath) {
    active_.erase(prefix_ + relPath);
}

bool QueuedUploads::isActive(const std::string& relPath) const {
    return active_.contains(prefix_ + relPath);
}

} // namespace Korvane
