#pragma once

#include "KorvaneCore/platform/FileEventBatch.hpp"
#include "KorvaneCore/platform/Inotify.hpp"
#include "KorvaneCore/platform/WatchedFolders.hpp"

#include <unordered_set>

namespace Korvane {

/// Folders with everything below them under inotify. A folder is watched first and looked into afterwards, so
/// what appears in it is seen by one or the other. Used by one thread at a time.
///
/// The path decides: whenever an event names a folder, the kernel is asked which watch is at its path now,
/// and the bookkeeping follows the answer. So it is right again after the last event of any order of moves,
/// and a folder found earlier by looking ahead is not looked into twice. A folder that can be reached by two
/// paths (bind mounts) is reported under one of them.
class WatchedTree {
public:
    struct Root {
        std::string path;
        /// Set once something was seen mounted there. From then on the bare folder below does not count.
        bool isMountPoint = false;
    };

    /// What keeps the system from watching everything.
    enum class Shortage { none, watches, instances, descriptors };

    /// Watches what is there; nothing of it is put into the batch. Ends early when `stop` is raised. `roots`,
    /// none below another, `stop` and `batch` must outlive the tree.
    WatchedTree(std::vector<Root>& roots, const StopSignal& stop, FileEventBatch& batch);

    [[nodiscard]] Shortage shortage() const noexcept { return shortage_; }

    [[nodiscard]] bool lacksRoot() const noexcept { return !missing_.empty(); }

    /// Whether a root that was missing can be watched now.
    [[nodiscard]] bool missingRootIsBack() const;

    /// Waits for events, for the end or for `timeout`; whether there is something to read().
    [[nodiscard]] bool wait(std::optional<std::chrono::milliseconds> timeout) const noexcept;

    /// Puts the changes into the batch. Returns the FileEvent flags that make this tree worthless: it is to
    /// be replaced by a new one, and everything to be looked at again.
    [[nodiscard]] std::uint32_t read();

    /// Whether folders have left their place and not arrived at another one yet.
    [[nodiscard]] bool hasOpenMoves() const noexcept { return !moving_.empty(); }

    /// Stops watching the folders that have not arrived: they are somewhere else.
    void endMoves();

private:
    struct Place {
        int parent;
        std::string name;
    };

    void watchRoot(Root& root);
    void watchAbove(const Root& root);

    /// Watches the folder at a place and all below it. What lies in a folder that was not watched before goes
    /// into the batch when `report` is set. `moved` is a watch expected to arrive with all below it.
    void watchAll(Place place, bool report, std::optional<int> moved = {});

    /// The watch now at a place, if what lies in it is to be looked at.
    [[nodiscard]] std::optional<int> watch(const Place& place, std::optional<int> moved);

    void look(int watch, bool report, std::vector<Place>& folders);
    void handle(const Inotify::Event& event);
    void folderChanged(const Inotify::Event& event);
    void refused(int error);
    void remove(const std::vector<int>& watches);

    const StopSignal& stop_;
    FileEventBatch& batch_;
    Inotify inotify_;
    WatchedFolders folders_;
    std::unordered_set<int> above_; // on the folders above the roots
    std::vector<const Root*> missing_;
    std::unordered_map<std::uint32_t, int> moving_; // watches by the cookie of their move
    Shortage shortage_ = Shortage::none;
    std::uint32_t problems_ = 0;
};

} // namespace Korvane
