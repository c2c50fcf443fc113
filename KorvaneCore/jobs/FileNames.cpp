#include "KorvaneCore/jobs/FileNames.hpp"

#include "KRCrypto/FileExtension.hpp"
#include "KRCrypto/UnicodeText.hpp"

#include <algorithm>

namespace Korvane::FileNames {

namespace {

constexpr std::size_t mostBytes = 255; // of a name, on every common file system
constexpr std::size_t mostDeviceBytes = 80;
constexpr std::string_view conflictMark = " (conflicted copy from ";

/// The stem gives way where the name would be too long for a disk.
std::string joined(std::string_view stem, const std::string& suffix, std::string_view extension) {
    const auto taken = std::min(suffix.size() + extension.size(), mostBytes);
    return std::string(KRCrypto::startOf(stem, mostBytes - taken)) + suffix + std::string(extension);
}

std::string countOf(std::int64_t number) {
    return " (" + std::to_string(number) + ")";
}

} // namespace

Split split(std::string_view name) {
    const auto extension = KRCrypto::extensionOf(name);
    return {name.substr(0, name.size() - extension.size()), extension};
}

std::string numbered(std::string_view name, std::int64_t number) {
    const auto [stem, extension] = split(name);
    return joined(stem, countOf(number), extension);
}

std::string numberedFolder(std::string_view name, std::int64_t number) {
    return joined(name, countOf(number), "");
}

std::string conflicted(std::string_view name, std::string_view deviceName, std::string_view day) {
    std::string device(deviceName);
    std::erase_if(device, [](char c) { return c == '/' || c == '\0'; });
    const auto [stem, extension] = split(name);
    return joined(stem,
                  std::string(conflictMark) + std::string(KRCrypto::startOf(device, mostDeviceBytes)) + " " +
                      std::string(day) + ")",
                  extension);
}

std::string furtherConflicted(std::string_view conflictedName, std::int64_t number) {
    const auto [stem, extension] = split(conflictedName);
    const auto unnumbered = stem.substr(0, stem.rfind(')'));
    const auto mark = std::min(unnumbered.rfind(conflictMark), unnumbered.size());
    return joined(unnumbered.substr(0, mark),
                  std::string(unnumbered.substr(mark)) + " " + std::to_string(number) + ")", extension);
}

} // namespace Korvane::FileNames
