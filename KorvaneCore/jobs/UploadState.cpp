#include "KorvaneCore/jobs/UploadState.hpp"

#include <algorithm>
#include <utility>

namespace Korvane {

std::shared_ptr<const SourceContent> UploadState::hashed(const std::filesystem::path& file,
                                                         const LocalStat& stat) const {
    const auto found = std::ranges::find_if(
        hashed_, [&](const auto& content) { return content->file() == file && content->stat() == stat; });
    return found == hashed_.end() ? nullptr : *found;
}

void UploadState::keep(std::shared_ptr<const SourceContent> content) {
    forget(content->file());
    hashed_.push_front(std::move(content));
    if (hashed_.size() > mostKept)
        hashed_.pop_back();
}

void UploadState::forget(const std::filesystem::path& file) {
    std::erase_if(hashed_, [&](const auto& content) { return content->file() == file; });
}

} // namespace Korvane
