#pragma once

#include "KorvaneCore/platform/PropertyList.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace Korvane {

/// The running program's information property list. Immutable, so callable from any thread.
class Bundle {
public:
    explicit Bundle(PropertyList::Dictionary info) : info_(std::move(info)) {}

    /// The running program's bundle, read once: from the folder that KORVANE_BUNDLE names, else "Info.plist"
    /// beside the program, else "../share/korvane/<program>/Info.plist". A program without one has an empty
    /// bundle. Throws PropertyListError or FileError when the list is there but unreadable, and FileError
    /// when KORVANE_BUNDLE names a folder without one.
    static const Bundle& main();

    /// "CFBundleIdentifier", empty when absent.
    [[nodiscard]] std::string identifier() const;

    /// The string under `key`; none when it is absent or no string.
    [[nodiscard]] std::optional<std::string> infoString(std::string_view key) const;

private:
    PropertyList::Dictionary info_;
};

/// The absolute path of the running program, links resolved. Throws FileError.
[[nodiscard]] std::filesystem::path programPath();

} // namespace Korvane
