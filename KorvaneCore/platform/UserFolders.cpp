#include "KorvaneCore/platform/UserFolders.hpp"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

namespace Korvane::UserFolders {

namespace {

std::optional<std::filesystem::path> absoluteFromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value != '/')
        return std::nullopt;
    return std::filesystem::path(value);
}

} // namespace

std::optional<std::filesystem::path> groupContainer(std::string_view appGroup) {
    if (const auto data = absoluteFromEnvironment("XDG_DATA_HOME"))
        return *data / appGroup;
    if (const auto home = absoluteFromEnvironment("HOME"))
        return *home / ".local/share" / appGroup;
    return std::nullopt;
}

std::optional<std::filesystem::path> applicationSupport() {
    std::array<char, 4096> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0)
        return std::nullopt;
    if (found == nullptr || *found->pw_dir != '/')
        return std::nullopt;

    const std::filesystem::path home(found->pw_dir);
    std::error_code ignored;
    if (!std::filesystem::is_directory(home, ignored))
        return std::nullopt;
    return home / ".local/share";
}

std::filesystem::path temporary() {
    const auto base = absoluteFromEnvironment("TMPDIR").value_or("/tmp");
    return base / ("korvane-" + std::to_string(::getuid()));
}

} // namespace Korvane::UserFolders
