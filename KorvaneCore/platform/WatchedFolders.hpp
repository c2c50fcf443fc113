#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Korvane {

/// Where each watch of an Inotify instance lies: a name in the folder of another watch. A folder that moves
/// takes everything below it along. Used by one thread at a time.
class WatchedFolders {
public:
    /// The parent of a root, whose name is its whole path.
    static constexpr int noParent = -1;

    /// Puts a watch at a place, from wherever it was. Returns the watches that lay at the place or below it
    /// until now. Changes nothing and returns none when the place lies below the watch itself.
    std::optional<std::vector<int>> place(int watch, int parent, std::string_view name);

    /// Forgets a watch and everything below it, and returns their watches.
    std::vector<int> forget(int watch);

    /// The watch at a place.
    [[nodiscard]] std::optional<int> at(int parent, std::string_view name) const;

    /// None for an unknown watch.
    [[nodiscard]] std::optional<std::string> path(int watch) const;

    /// The path of a name, which need not be watched, in a watched folder.
    [[nodiscard]] std::optional<std::string> path(int parent, std::string_view name) const;

    [[nodiscard]] bool isRoot(int watch) const;

private:
    struct ByParentAndName {
        using is_transparent = void;

        template <class A, class B>
        bool operator()(const A& a, const B& b) const {
            return a.first != b.first ? a.first < b.first
                                      : std::string_view(a.second) < std::string_view(b.second);
        }
    };

    using Watches = std::map<std::pair<int, std::string>, int, ByParentAndName>;

    [[nodiscard]] bool isBelow(int watch, int ancestor) const;

    Watches watches_;
    std::unordered_map<int, Watches::const_iterator> places_;
};

} // namespace Korvane
