#include "KorvaneCore/sync/PartPlan.hpp"

#include "KorvaneCore/api/APIError.hpp"

#include <algorithm>
#include <utility>

namespace Korvane {

PartPlan::PartPlan(std::vector<UploadPart> parts, std::int64_t chunkCount) : parts_(std::move(parts)) {
    std::ranges::sort(parts_, {}, &UploadPart::partNumber);
    const auto twice = std::ranges::adjacent_find(parts_, {}, &UploadPart::partNumber);
    if (std::ssize(parts_) != chunkCount || twice != parts_.end())
        throw APIError(APIError::Decoding{"the upload has " + std::to_string(parts_.size()) + " parts for " +
                                          std::to_string(chunkCount) + " chunks"});
}

std::vector<PartPlan::Part> PartPlan::missing(const std::set<std::int64_t>& sentHere) const {
    std::vector<Part> result;
    for (std::int64_t index = 0; index < std::ssize(parts_); ++index) {
        const auto& part = parts_[static_cast<std::size_t>(index)];
        if (!part.uploaded.value_or(sentHere.contains(index)))
            result.push_back({index, part.url});
    }
    return result;
}

} // namespace Korvane
