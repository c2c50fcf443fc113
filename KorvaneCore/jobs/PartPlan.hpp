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

    /// Of a session that has just begun: nothing can have been sent yet, whatever the service says. Sorted by
    /// number, the i-th part is chunk i. Throws APIError (Decoding) unless there is one for each of
    /// `chunkCount` chunks.
    PartPlan(std::vector<UploadPart> parts, std::int64_t chunkCount);

    /// Of a session of an earlier run: what the service says it has was sent with its key. Throws likewise.
    [[nodiscard]] static PartPlan resumed(std::vector<UploadPart> parts, std::int64_t chunkCount);

    /// The parts as the service lists them by now. Throws likewise.
    void update(std::vector<UploadPart> parts);

    /// What was not sent, what the service says it does not have, and what it has refused since it was sent.
    [[nodiscard]] std::vector<Part> missing() const;

    void markSent(std::int64_t index);

    /// The service will not do without the parts of these numbers. Others than it has listed are ignored.
    void markRefused(const std::vector<std::int64_t>& numbers);

private:
    std::int64_t chunkCount_;
    std::vector<UploadPart> parts_;
    std::set<std::int64_t> sent_; ///< chunks
};

} // namespace Korvane
