#pragma once

#include "KorvaneCore/jobs/SourceContent.hpp"
#include "KorvaneCore/jobs/Turns.hpp"

#include <cstddef>
#include <deque>
#include <memory>

namespace Korvane {

/// What the runs of uploads share. On one strand; outlives them.
class UploadState {
public:
    /// Of the contents that are being sent, by blob id: one upload of each at a time.
    Turns turns;

    /// The file's content if a run has hashed it a while ago and it looks the same now, else none.
    [[nodiscard]] std::shared_ptr<const SourceContent> hashed(const std::filesystem::path& file,
                                                              const LocalStat& stat) const;

    void keep(std::shared_ptr<const SourceContent> content);
    void forget(const std::filesystem::path& file);

private:
    static constexpr std::size_t mostKept = 8;

    std::deque<std::shared_ptr<const SourceContent>> hashed_; ///< the latest first
};

} // namespace Korvane
