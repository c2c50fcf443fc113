#pragma once

#include "KorvaneCore/queue/DownloadJob.hpp"
#include "KorvaneCore/queue/UploadJob.hpp"
#include "KorvaneCore/storage/TransferRecord.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Korvane {

/// The job in a transfer record's payload.
using TransferJob = std::variant<UploadJob, DownloadJob>;

[[nodiscard]] std::vector<std::uint8_t> transferPayload(const TransferJob& job);

/// Reads the payload as the record's kind says. Throws JSONError.
[[nodiscard]] TransferJob transferJob(const TransferRecord& record);

/// transferJob(), or none when the payload does not decode.
[[nodiscard]] std::optional<TransferJob> readableJob(const TransferRecord& record);

[[nodiscard]] const TransferOrigin& originOf(const TransferJob& job) noexcept;

/// The local file that is read; empty for a download.
[[nodiscard]] std::string sourceOf(const TransferJob& job);

} // namespace Korvane
