#include "KorvaneCore/platform/FileEventBatch.hpp"

#include <utility>

namespace Korvane {

void FileEventBatch::add(std::string path, std::uint32_t flags) {
    const auto [position, isNew] = positions_.try_emplace(path, events_.size());
    if (!isNew) {
        events_[position->second].flags |= flags;
        return;
    }
    if (events_.size() >= limit && flags == 0) {
        positions_.erase(position);
        overflowed_ = true;
        return;
    }
    events_.push_back({std::move(path), flags});
}

std::optional<FileEventBatch::Instant> FileEventBatch::due() const {
    if (events_.empty())
        return std::nullopt;
    return delivered_ + latency_;
}

std::vector<FileEvent> FileEventBatch::take(Instant now) {
    delivered_ = now;
    overflowed_ = false;
    positions_.clear();
    return std::exchange(events_, {});
}

} // namespace Korvane
