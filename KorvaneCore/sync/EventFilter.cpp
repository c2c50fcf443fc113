#include "KorvaneCore/sync/EventFilter.hpp"

#include <algorithm>
#include <array>

namespace Korvane {

namespace {

using namespace std::string_view_literals;

constexpr std::array names{".DS_Store"sv, "Icon\r"sv,          ".localized"sv,
                           ".Trash"sv,    ".TemporaryItems"sv, ".fseventsd"sv};
constexpr auto partialDownload = ".korvane-"sv;
constexpr std::array beginnings{"._"sv, "~$"sv, partialDownload};
constexpr std::array endings{".swp"sv, ".tmp"sv};

std::string_view lastComponent(std::string_view path) {
    return path.substr(path.find_last_of('/') + 1);
}

} // namespace

bool isPartialDownload(std::string_view path) {
    return lastComponent(path).starts_with(partialDownload);
}

bool isNoise(std::string_view path) {
    const auto name = lastComponent(path);
    return std::ranges::find(names, name) != names.end() ||
           std::ranges::any_of(beginnings, [name](auto part) { return name.starts_with(part); }) ||
           std::ranges::any_of(endings, [name](auto part) { return name.ends_with(part); });
}

bool callsForReconcile(const std::vector<std::string>& paths, bool rescan,
                       const std::function<bool(const std::string& path)>& isOwnWrite) {
    return rescan || std::ranges::any_of(
                         paths, [&](const std::string& path) { return !isNoise(path) && !isOwnWrite(path); });
}

} // namespace Korvane
