#include "KorvaneCore/background/SessionFiles.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/platform/Files.hpp"

#include <algorithm>
#include <stdexcept>

namespace Korvane::SessionFiles {

namespace {

constexpr std::size_t longestName = 100;

std::string checked(std::string_view name) {
    if (!isName(name))
        throw std::invalid_argument("not a name of a session or file");
    return std::string(name);
}

std::filesystem::path file(std::string_view identifier, std::string_view extension) {
    const auto name = checked(identifier);
    const auto folder = SharedContainer::directory(folderName);
    requirePrivateFolder(folder);
    return folder / (name + std::string(extension));
}

} // namespace

bool isName(std::string_view text) noexcept {
    const auto isAllowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
               c == '-' || c == '_';
    };
    return !text.empty() && text.size() <= longestName && text.front() != '.' &&
           std::ranges::all_of(text, isAllowed);
}

std::filesystem::path socket(std::string_view identifier) {
    return file(identifier, ".socket");
}

std::filesystem::path results(std::string_view identifier) {
    return file(identifier, ".results");
}

std::filesystem::path staged(std::string_view name) {
    return SharedContainer::cipherStaging() / checked(name);
}

std::string helperLock(std::string_view identifier) {
    return checked(identifier) + ".helper";
}

std::string startLock(std::string_view identifier) {
    return checked(identifier) + ".start";
}

} // namespace Korvane::SessionFiles
