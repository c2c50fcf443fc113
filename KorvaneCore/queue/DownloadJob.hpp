#pragma once

#include "KorvaneCore/queue/LocalStat.hpp"
#include "KorvaneCore/queue/TransferOrigin.hpp"

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace Korvane {

/// What turns a file of the service into a local one. The members are the JSON keys of its stored form.
struct DownloadJob {
    /// What to do when the destination changed since the download was planned.
    enum class Collision : std::uint8_t { conflictCopy, overwrite };

    std::string fileId;
    std::string destinationPath;
    TransferOrigin origin;
    std::optional<LocalStat> guardLocal; ///< what was at the destination when the download was planned
    Collision collision = Collision::conflictCopy;
    std::optional<std::string> tempPath; ///< the partial file being written
    std::optional<std::int64_t> version; ///< being fetched

    bool operator==(const DownloadJob&) const = default;
};

BOOST_DESCRIBE_ENUM(DownloadJob::Collision, conflictCopy, overwrite)
BOOST_DESCRIBE_STRUCT(DownloadJob, (),
                      (fileId, destinationPath, origin, guardLocal, collision, tempPath, version))

} // namespace Korvane
