#include "KorvaneCore/sync/FileNames.hpp"

#include <algorithm>

namespace Korvane::FileNames {

namespace {

constexpr std::size_t shortestExtension = 2;
constexpr std::size_t longestExtension = 16;

/// Characters, not bytes: continuation bytes of UTF-8 do not count.
std::size_t characters(std::string_view text) {
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

} // namespace

Split split(std::string_view name) {
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0)
        return {name, {}};
    const auto extension = name.substr(dot);
    const auto length = characters(extension);
    if (length < shortestExtension || length > longestExtension ||
        extension.find(' ') != std::string_view::npos)
        return {name, {}};
    return {name.substr(0, dot), extension};
}

std::string numbered(std::string_view name, std::int64_t number) {
    const auto [stem, extension] = split(name);
    return std::string(stem) + " (" + std::to_string(number) + ")" + std::string(extension);
}

std::string conflicted(std::string_view name, std::string_view deviceName, std::string_view day) {
    std::string device(deviceName);
    std::erase_if(device, [](char c) { return c == '/' || c == '\0'; });
    const auto [stem, extension] = split(name);
    return std::string(stem) + " (conflicted copy from " + device + " " + std::string(day) + ")" +
           std::string(extension);
}

std::string furtherConflicted(std::string_view conflictedName, std::int64_t number) {
    const auto [stem, extension] = split(conflictedName);
    return std::string(stem.substr(0, stem.rfind(')'))) + " " + std::to_string(number) + ")" +
           std::string(extension);
}

} // namespace Korvane::FileNames
