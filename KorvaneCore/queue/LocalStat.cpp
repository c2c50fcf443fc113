#include "KorvaneCore/queue/LocalStat.hpp"

#include "KorvaneCore/platform/FileStatus.hpp"

#include <chrono>

namespace Korvane {

std::optional<LocalStat> localStat(const std::filesystem::path& path) {
    const auto status = fileStatus(path);
    if (!status)
        return std::nullopt;
    const std::chrono::duration<double> mtime = status->modified.time_since_epoch();
    return LocalStat{status->size, mtime.count(), status->inode, status->kind == FileStatus::Kind::folder};
}

} // namespace Korvane
