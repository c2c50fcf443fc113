#include "KorvaneCore/sync/FileNames.hpp"

#include "KRCrypto/FileExtension.hpp"

#include <algorithm>

namespace Korvane::FileNames {

Split split(std::string_view name) {
    const auto extension = KRCrypto::extensionOf(name);
    return {name.substr(0, name.size() - extension.size()), extension};
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
