#pragma once

#include "KorvaneCore/api/records/Uploads.hpp"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace Korvane {

/// Which parts of an upload are still to be sent. A value, without I/O.
class PartPlan {
public:
    struct Part {
        std::int64_t index = 0; ///< of the chunk, from 0
        std::string url;

        bool operator==(const Part&) const = default;
    };

    /// Sorted by number, the i-th part is chunk i. Throws APIError (Decoding) unless there is one for each of
    /// `chunkCount` chunks.
    PartPlan(std::vector<UploadPart> parts, std::int64_t chunkCount);

    PartPlan() = default;

    /// What a part's own flag says counts; where the service sends none, what was sent from here.
    [[nodiscard]] std::vector<Part> missing(const std::set<std::int64_t>& sentHere) const;

private:
    std::vector<UploadPart> parts_;
};

} // namespace Korvane
