#pragma once

#include "KorvaneCore/queue/LocalStat.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace Korvane {

/// Where the content of the account's files lies on this device: below the sync roots, and among the offline
/// copies, which are recorded as if their folder were a root of its own.
///
/// Looks at the disk, so not on an event thread; callable from any other. Throws SQLiteError.
class LocalCopies {
public:
    /// The offline copies' place among the sync roots' identifiers.
    static constexpr const char* offlineRoot = "offline";

    LocalCopies(std::shared_ptr<LocalIndex> index, std::filesystem::path offlineFolder);

    struct Copy {
        std::filesystem::path path;
        LocalStat stat;
    };

    /// A file that was reconciled with the item's present content and is as it was then, by size and
    /// modification time. None for a folder.
    [[nodiscard]] std::optional<Copy> of(const IndexItem& item) const;

    /// Whether that file is still what it was.
    [[nodiscard]] static bool isUntouched(const Copy& copy);

    /// The file at `path` if it is as it was when it was reconciled.
    [[nodiscard]] static std::optional<Copy> untouched(const std::filesystem::path& path,
                                                       const LocalIndex::BaseEntry& base);

    /// Whether what was reconciled is the item's present content: a new name is no new content.
    [[nodiscard]] static bool isContentOf(const LocalIndex::BaseEntry& base, const IndexItem& item);

    /// localStat(), and none as well, with a word in the log, when the system does not tell.
    [[nodiscard]] static std::optional<LocalStat> lookAt(const std::filesystem::path& path);

private:
    [[nodiscard]] std::optional<std::filesystem::path> folderOf(const std::string& rootId) const;

    std::shared_ptr<LocalIndex> index_;
    std::filesystem::path offlineFolder_;
};

} // namespace Korvane
