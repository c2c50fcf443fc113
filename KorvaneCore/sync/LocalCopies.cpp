#include "KorvaneCore/sync/LocalCopies.hpp"

#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/sync/SyncRoots.hpp"

#include <utility>

namespace Korvane {

LocalCopies::LocalCopies(std::shared_ptr<LocalIndex> index, std::filesystem::path offlineFolder)
    : index_(std::move(index)), offlineFolder_(std::move(offlineFolder)) {}

std::optional<LocalCopies::Copy> LocalCopies::of(const IndexItem& item) const {
    if (item.isFolder)
        return std::nullopt;
    for (const auto& [rootId, base] : index_->basesOf(item.id)) {
        if (base.isFolder || !isContentOf(base, item))
            continue;
        const auto folder = folderOf(rootId);
        if (auto copy = folder ? untouched(*folder / base.relPath, base) : std::nullopt)
            return copy;
    }
    return std::nullopt;
}

bool LocalCopies::isUntouched(const Copy& copy) {
    return lookAt(copy.path) == copy.stat;
}

std::optional<LocalCopies::Copy> LocalCopies::untouched(const std::filesystem::path& path,
                                                        const LocalIndex::BaseEntry& base) {
    const auto stat = lookAt(path);
    if (stat && !stat->isDirectory && stat->size == base.localSize && stat->mtime == base.localMtime)
        return Copy{path, *stat};
    return std::nullopt;
}

std::optional<LocalStat> LocalCopies::lookAt(const std::filesystem::path& path) {
    try {
        return localStat(path);
    } catch (const FileError& error) {
        // Without the path: names are the user's own.
        Log::warning("sync", "a local copy cannot be looked at: " + error.code().message());
        return std::nullopt;
    }
}

bool LocalCopies::isContentOf(const LocalIndex::BaseEntry& base, const IndexItem& item) {
    return base.version == item.version || (base.sha256 && base.sha256 == item.sha256);
}

std::optional<std::filesystem::path> LocalCopies::folderOf(const std::string& rootId) const {
    if (rootId == offlineRoot)
        return offlineFolder_;
    const auto root = SyncRoots::find(*index_, rootId);
    return root ? std::optional<std::filesystem::path>(root->path) : std::nullopt;
}

} // namespace Korvane
