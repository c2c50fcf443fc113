#include "KorvaneCore/sync/QueuedUploads.hpp"

#include "KorvaneCore/queue/TransferJob.hpp"

#include <utility>

namespace Korvane {

namespace {

std::string keyOf(const std::string& rootId, const std::string& relPath) {
    return TransferOrigin(TransferOrigin::Sync{rootId, relPath}).dedupeKey().value_or("");
}

} // namespace

QueuedUploads::QueuedUploads(std::string rootId) : rootId_(std::move(rootId)), prefix_(keyOf(rootId_, "")) {}

void QueuedUploads::look(LocalIndex& index) {
    active_.merge(index.activeDedupeKeys(prefix_));
    failed_.clear();
    for (const auto& record : index.transfers({{TransferRecord::State::failed}}, -1)) {
        const auto job = readableJob(record);
        const auto* upload = job ? std::get_if<UploadJob>(&*job) : nullptr;
        const auto* origin = upload != nullptr ? upload->origin.as<TransferOrigin::Sync>() : nullptr;
        if (origin != nullptr && origin->rootId == rootId_)
            failed_[origin->relPath] = {record.id, upload->sourceStat, record.createdAt};
    }
}

bool QueuedUploads::hold(const LocalScan::Entry& file) const {
    if (isActive(file.relPath))
        return true;
    const auto failed = failed_.find(file.relPath);
    return failed != failed_.end() && failed->second.source == file.stat &&
           file.changed <= failed->second.since;
}

bool QueuedUploads::isActive(const std::string& relPath) const {
    return active_.contains(prefix_ + relPath);
}

} // namespace Korvane
