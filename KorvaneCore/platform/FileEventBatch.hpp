#pragma once

#include "KorvaneCore/platform/FileEventStream.hpp"

#include <optional>
#include <string_view>
#include <unordered_map>

namespace Korvane {

/// Gathers events until they are due: at once after a pause of `latency`, else `latency` after the batch
/// before.
class FileEventBatch {
public:
    using Instant = std::chrono::steady_clock::time_point;

    /// Beyond this many paths a batch is replaced by the request to look at everything again.
    static constexpr std::size_t limit = 16'384;

    explicit FileEventBatch(std::chrono::milliseconds latency) : latency_(latency) {}

    /// A path added twice is kept once, with the flags of both.
    void add(std::string path, std::uint32_t flags = 0);

    /// None while there is nothing to deliver.
    [[nodiscard]] std::optional<Instant> due() const;

    /// Whether events were dropped since the last take(), because there were too many.
    [[nodiscard]] bool overflowed() const noexcept { return overflowed_; }

    [[nodiscard]] std::vector<FileEvent> take(Instant now);

private:
    std::chrono::milliseconds latency_;
    std::vector<FileEvent> events_;
    std::unordered_map<std::string, std::size_t> positions_;
    bool overflowed_ = false;
    Instant delivered_;
};

} // namespace Korvane
