#include "KorvaneCore/jobs/PartPlan.hpp"

#include "KorvaneCore/api/APIError.hpp"

#include <algorithm>
#include <utility>

namespace Korvane {

PartPlan::PartPlan(std::vector<UploadPart> parts, std::int64_t chunkCount) : chunkCount_(chunkCount) {
    update(std::move(parts));
}

PartPlan PartPlan::resumed(std::vector<UploadPart> parts, std::int64_t chunkCount) {
    PartPlan plan(std::move(parts), chunkCount);
    for (std::int64_t index = 0; index < chunkCount; ++index)
        if (plan.parts_[static_cast<std::size_t>(index)].uploaded.value_or(false))
            plan.sent_.insert(index);
    return plan;
}

void PartPlan::update(std::vector<UploadPart> parts) {
    std::ranges::sort(parts, {}, &UploadPart::partNumber);
    const auto twice = std::ranges::adjacent_find(parts, {}, &UploadPart::partNumber);
    if (std::ssize(parts) != chunkCount_ || twice != parts.end())
        throw APIError(APIError::Decoding{"the upload has " + std::to_string(parts.size()) + " parts for " +
                                          std::to_string(chunkCount_) + " chunks"});
    parts_ = std::move(parts);
}

std::vector<PartPlan::Part> PartPlan::missing() const {
    std::vector<Part> result;
    for (std::int64_t index = 0; index < std::ssize(parts_); ++index) {
        const auto& part = parts_[static_cast<std::size_t>(index)];
        if (!sent_.contains(index) || !part.uploaded.value_or(true))
            result.push_back({index, part.url});
    }
    return result;
}

void PartPlan::markSent(std::int64_t index) {
    sent_.insert(index);
}

void PartPlan::markRefused(const std::vector<std::int64_t>& numbers) {
    for (const auto number : numbers) {
        const auto found = std::ranges::lower_bound(parts_, number, {}, &UploadPart::partNumber);
        if (found != parts_.end() && found->partNumber == number)
            sent_.erase(found - parts_.begin());
    }
}

} // namespace Korvane
