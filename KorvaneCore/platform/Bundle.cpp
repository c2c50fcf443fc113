#include "KorvaneCore/platform/Bundle.hpp"

#include "KorvaneCore/platform/Files.hpp"

#include <cstdlib>

namespace Korvane {

namespace {

constexpr std::size_t maxInfoSize = std::size_t{1} << 20;
constexpr std::string_view infoFileName = "Info.plist";

std::optional<std::filesystem::path> infoFile() {
    if (const char* folder = std::getenv("KORVANE_BUNDLE"); folder != nullptr && *folder != '\0')
        return std::filesystem::path(folder) / infoFileName;

    const auto program = programPath();
    const auto beside = program.parent_path() / infoFileName;
    if (std::filesystem::exists(beside))
        return beside;
    const auto installed =
        program.parent_path().parent_path() / "share/korvane" / program.filename() / infoFileName;
    if (std::filesystem::exists(installed))
        return installed;
    return std::nullopt;
}

Bundle load() {
    const auto file = infoFile();
    if (!file)
        return Bundle({});
    const auto root = parsePropertyList(readFile(*file, maxInfoSize));
    const auto* info = root.as<PropertyList::Dictionary>();
    if (info == nullptr)
        throw PropertyListError(file->string() + " does not hold a dictionary");
    return Bundle(*info);
}

} // namespace

const Bundle& Bundle::main() {
    static const Bundle bundle = load();
    return bundle;
}

std::string Bundle::identifier() const {
    return infoString("CFBundleIdentifier").value_or("");
}

std::optional<std::string> Bundle::infoString(std::string_view key) const {
    const auto found = info_.find(key);
    if (found == info_.end())
        return std::nullopt;
    const auto* text = found->second.as<std::string>();
    if (text == nullptr)
        return std::nullopt;
    return *text;
}

std::filesystem::path programPath() {
    std::error_code error;
    auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error)
        throw FileError("find", "/proc/self/exe", error);
    return path;
}

} // namespace Korvane
