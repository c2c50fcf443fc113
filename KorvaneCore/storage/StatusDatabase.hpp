#pragma once

#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/Mutex.hpp"
#include "KorvaneCore/platform/NotificationCenter.hpp"
#include "KorvaneCore/storage/PathStatus.hpp"
#include "KorvaneCore/storage/SQLiteDatabase.hpp"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

/// The sync state of every local path inside the sync roots, kept in a file that other processes open too, to
/// show a badge for a path. After each change it posts KRIdentifiers::statusChangedNotification; readers then
/// ask again.
///
/// Paths are absolute, without a slash at the end, and compared byte for byte. "Below" a path is what begins
/// with the path and a slash. Callable from any thread. Every operation throws SQLiteError and has then
/// changed nothing; a post that fails is logged, as the change itself has been made.
class StatusDatabase {
public:
    struct Entry {
        std::string path;
        PathStatus state;
        std::optional<std::string> itemId;
    };

    struct Root {
        std::string path;
        std::optional<std::string> remoteId;
    };

    /// Opens the file, or creates it with its tables.
    StatusDatabase(const std::filesystem::path& url, NotificationCenter notifications,
                   std::shared_ptr<Clock> clock = systemClock());

    /// Records the state of a path as of now. Without an item id the one stored stays.
    void set(PathStatus status, const std::string& path, const std::optional<std::string>& itemId = {});

    /// set() for each entry, all or none, with one post.
    void setMany(const std::vector<Entry>& entries);

    /// Forgets the path and, when recursive, everything below it.
    void remove(const std::string& path, bool recursive);

    /// None for an unknown path, and for a state written by another version that is none of PathStatus.
    [[nodiscard]] std::optional<PathStatus> status(const std::string& path);

    /// The states below a folder, by path, but for those written by another version.
    [[nodiscard]] std::map<std::string, PathStatus> statusesBelow(const std::string& folder);

    /// The one state for a folder's badge: of the folder and everything below it the first found of error,
    /// conflict, syncing, queued, synced, excluded.
    [[nodiscard]] std::optional<PathStatus> aggregateStatus(const std::string& folder);

    [[nodiscard]] std::optional<std::string> itemId(const std::string& path);

    /// Replaces all roots.
    void setRoots(const std::vector<Root>& roots);

    /// The roots' paths.
    [[nodiscard]] std::vector<std::string> roots();

    /// Forgets the states of the root and of everything below it; the root itself stays among roots().
    void clearRoot(const std::string& path);

    /// Forgets all states and roots.
    void clearAll();

    /// Tells every process that states may have changed.
    void postChanged();

private:
    const std::shared_ptr<Clock> clock_;
    Mutex mutex_;
    SQLiteDatabase database_ KR_GUARDED_BY(mutex_);
    NotificationCenter notifications_;
};

} // namespace Korvane
