#include "KorvaneCore/platform/WatchedTree.hpp"

#include "KorvaneCore/platform/Log.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <system_error>

namespace Korvane {

namespace {

constexpr std::uint32_t contents =
    IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB | IN_MOVED_FROM | IN_MOVED_TO;
// A root may be a link, and the mask of a folder known already only grows.
constexpr std::uint32_t rootMask =
    contents | IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK | IN_MASK_ADD;
constexpr std::uint32_t folderMask = contents | IN_ONLYDIR | IN_DONT_FOLLOW | IN_EXCL_UNLINK | IN_MASK_ADD;
constexpr std::uint32_t aboveMask = IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR | IN_MASK_ADD;
constexpr std::uint32_t selfGone = IN_MOVE_SELF | IN_DELETE_SELF | IN_UNMOUNT;

struct CloseFolder {
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

using Folder = std::unique_ptr<DIR, CloseFolder>;

bool isFolder(DIR* folder, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_DIR;
    struct stat status{};
    const int fd = ::dirfd(folder);
    return fd >= 0 && ::fstatat(fd, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
}

bool isMountPoint(const std::string& path) {
    struct stat status{};
    struct stat above{};
    return ::stat(path.c_str(), &status) == 0 && ::stat((path + "/..").c_str(), &above) == 0 &&
           status.st_dev != above.st_dev;
}

/// A root that may not be read is as good as missing.
bool isThere(const WatchedTree::Root& root) {
    struct stat status{};
    return ::stat(root.path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           ::faccessat(AT_FDCWD, root.path.c_str(), R_OK | X_OK, AT_EACCESS) == 0 &&
           (!root.isMountPoint || isMountPoint(root.path));
}

} // namespace

WatchedTree::WatchedTree(std::vector<Root>& roots, const StopSignal& stop, FileEventBatch& batch)
    : stop_(stop), batch_(batch) {
    if (!inotify_.isOpen()) {
        shortage_ = Shortage::instances;
        return;
    }
    for (auto& root : roots)
        watchRoot(root);
}

void WatchedTree::watchRoot(Root& root) {
    watchAbove(root);
    if (isThere(root)) {
        root.isMountPoint = isMountPoint(root.path);
        watchAll({WatchedFolders::noParent, root.path}, false);
    }
    if (!folders_.at(WatchedFolders::noParent, root.path) && shortage_ == Shortage::none)
        missing_.push_back(&root);
}

void WatchedTree::watchAbove(const Root& root) {
    for (auto folder = std::filesystem::path(root.path).parent_path(); folder.has_relative_path();
         folder = folder.parent_path()) {
        // Where that is refused, a move of this folder shows as soon as the root is used by its path.
        if (const int watch = inotify_.add(folder.c_str(), aboveMask); watch >= 0)
            above_.insert(watch);
        else if (errno == ENOSPC)
            refused(ENOSPC);
    }
}

bool WatchedTree::missingRootIsBack() const {
    return std::ranges::any_of(missing_, [](const Root* root) { return isThere(*root); });
}

bool WatchedTree::wait(std::optional<std::chrono::milliseconds> timeout) const noexcept {
    return inotify_.wait(stop_, timeout);
}

void WatchedTree::watchAll(Place place, bool report, std::optional<int> moved) {
    std::vector<Place> folders{std::move(place)};
    while (!folders.empty() && shortage_ == Shortage::none && !stop_.raised()) {
        const auto next = std::move(folders.back());
        folders.pop_back();
        if (const auto unseen = watch(next, moved))
            look(*unseen, report, folders);
    }
}

std::optional<int> WatchedTree::watch(const Place& place, std::optional<int> moved) {
    const auto path = folders_.path(place.parent, place.name);
    if (!path)
        return std::nullopt;
    const bool isRoot = place.parent == WatchedFolders::noParent;
    const int watch = inotify_.add(path->c_str(), isRoot ? rootMask : folderMask);
    if (watch < 0) {
        refused(errno);
        return std::nullopt;
    }
    std::erase_if(moving_, [watch](const auto& move) { return move.second == watch; });
    if (folders_.at(place.parent, place.name) == watch)
        return std::nullopt;
    const auto replaced = folders_.place(watch, place.parent, place.name);
    if (!replaced) // a folder mounted below itself
        return std::nullopt;
    remove(*replaced);
    return moved == watch ? std::nullopt : std::optional(watch);
}

void WatchedTree::look(int watch, bool report, std::vector<Place>& folders) {
    const auto path = folders_.path(watch);
    if (!path)
        return;
    const Folder folder(::opendir(path->c_str()));
    if (!folder) {
        refused(errno);
        return;
    }
    const auto prefix = path->ends_with('/') ? *path : *path + '/';
    while (const dirent* entry = ::readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        if (report)
            batch_.add(prefix + entry->d_name);
        if (isFolder(folder.get(), *entry))
            folders.push_back({watch, std::string(name)});
    }
}

void WatchedTree::refused(int error) {
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return; // gone, or something else by now; an event tells
    case ENOSPC:
    case ENOMEM:
        shortage_ = Shortage::watches;
        return;
    case EMFILE:
    case ENFILE:
        shortage_ = Shortage::descriptors;
        return;
    default:
        // Without the path: names are the user's own.
        Log::warning("fsevents", "cannot watch a folder: " + std::generic_category().message(error));
    }
}

std::uint32_t WatchedTree::read() {
    problems_ = 0;
    inotify_.read([this](const Inotify::Event& event) { handle(event); });
    return problems_;
}

void WatchedTree::handle(const Inotify::Event& event) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        problems_ |= FileEvent::kernelDropped;
    } else if ((event.mask & selfGone) != 0) {
        const bool concernsRoot = above_.contains(event.watch) || folders_.isRoot(event.watch);
        problems_ |= concernsRoot ? FileEvent::rootChanged : FileEvent::mustScanSubDirs;
    } else if ((event.mask & IN_IGNORED) != 0) {
        remove(folders_.forget(event.watch));
    } else if (auto path = folders_.path(event.watch, event.name)) {
        batch_.add(std::move(*path));
        if ((event.mask & IN_ISDIR) != 0 && !event.name.empty())
            folderChanged(event);
    }
}

void WatchedTree::folderChanged(const Inotify::Event& event) {
    if ((event.mask & IN_MOVED_FROM) != 0) {
        if (const auto watch = folders_.at(event.watch, event.name))
            moving_.emplace(event.cookie, *watch);
        return;
    }
    // Permissions count too: a folder may be readable from now on.
    if ((event.mask & (IN_CREATE | IN_MOVED_TO | IN_ATTRIB)) == 0)
        return;
    std::optional<int> moved;
    if ((event.mask & IN_MOVED_TO) != 0)
        if (const auto move = moving_.find(event.cookie); move != moving_.end())
            moved = move->second;
    watchAll({event.watch, std::string(event.name)}, true, moved);
}

void WatchedTree::endMoves() {
    for (const auto& [cookie, watch] : moving_)
        remove(folders_.forget(watch));
    moving_.clear();
}

void WatchedTree::remove(const std::vector<int>& watches) {
    for (const int watch : watches)
        inotify_.remove(watch);
}

} // namespace Korvane
