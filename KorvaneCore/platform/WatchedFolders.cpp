#include "KorvaneCore/platform/WatchedFolders.hpp"

namespace Korvane {

std::optional<std::vector<int>> WatchedFolders::place(int watch, int parent, std::string_view name) {
    if (at(parent, name) == watch)
        return std::vector<int>();
    if (isBelow(parent, watch))
        return std::nullopt;

    // Lifted out first: the place may belong to a folder that this one comes out of.
    if (const auto place = places_.find(watch); place != places_.end())
        watches_.erase(place->second);
    std::vector<int> replaced;
    if (const auto earlier = at(parent, name))
        replaced = forget(*earlier);
    places_[watch] = watches_.emplace(std::pair(parent, std::string(name)), watch).first;
    return replaced;
}

std::vector<int> WatchedFolders::forget(int watch) {
    std::vector<int> forgotten;
    const auto root = places_.find(watch);
    if (root == places_.end())
        return forgotten;
    watches_.erase(root->second);
    places_.erase(root);
    forgotten.push_back(watch);
    for (std::size_t i = 0; i < forgotten.size(); ++i) {
        const int parent = forgotten[i];
        auto child = watches_.lower_bound(std::pair(parent, std::string_view()));
        while (child != watches_.end() && child->first.first == parent) {
            forgotten.push_back(child->second);
            places_.erase(child->second);
            child = watches_.erase(child);
        }
    }
    return forgotten;
}

std::optional<int> WatchedFolders::at(int parent, std::string_view name) const {
    const auto watch = watches_.find(std::pair(parent, name));
    return watch == watches_.end() ? std::nullopt : std::optional(watch->second);
}

std::optional<std::string> WatchedFolders::path(int watch) const {
    std::vector<std::string_view> names;
    while (watch != noParent) {
        const auto place = places_.find(watch);
        if (place == places_.end())
            return std::nullopt;
        names.push_back(place->second->first.second);
        watch = place->second->first.first;
    }
    std::string path;
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        if (name != names.rbegin() && !path.ends_with('/'))
            path += '/';
        path += *name;
    }
    return path;
}

std::optional<std::string> WatchedFolders::path(int parent, std::string_view name) const {
    if (parent == noParent)
        return std::string(name);
    auto path = this->path(parent);
    if (path && !name.empty()) {
        if (!path->ends_with('/'))
            *path += '/';
        *path += name;
    }
    return path;
}

bool WatchedFolders::isRoot(int watch) const {
    const auto place = places_.find(watch);
    return place != places_.end() && place->second->first.first == noParent;
}

bool WatchedFolders::isBelow(int watch, int ancestor) const {
    while (watch != noParent) {
        if (watch == ancestor)
            return true;
        const auto place = places_.find(watch);
        if (place == places_.end())
            return false;
        watch = place->second->first.first;
    }
    return false;
}

} // namespace Korvane
