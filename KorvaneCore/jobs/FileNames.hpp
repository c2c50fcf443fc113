#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Names beside names that are taken. A name is split before its extension (KRCrypto::extensionOf); without
/// one it is all stem. The new names have at most 255 bytes, for which the stem is cut between characters.
namespace Korvane::FileNames {

struct Split {
    std::string_view stem;
    std::string_view extension; ///< with its dot; may be empty
};

/// Borrows the name.
[[nodiscard]] Split split(std::string_view name);

/// "stem (2).txt"
[[nodiscard]] std::string numbered(std::string_view name, std::int64_t number);

/// Of a folder, whose name has no extension: "Notes 1.2 (2)".
[[nodiscard]] std::string numberedFolder(std::string_view name, std::int64_t number);

/// "stem (conflicted copy from Anna's laptop 2026-11-21).txt". `day` is yyyy-MM-dd. What separates path
/// components in the device's name is left out.
[[nodiscard]] std::string conflicted(std::string_view name, std::string_view deviceName,
                                     std::string_view day);

/// The next form of a conflicted() name: "stem (conflicted copy from Anna's laptop 2026-11-21 2).txt".
[[nodiscard]] std::string furtherConflicted(std::string_view conflictedName, std::int64_t number);

} // namespace Korvane::FileNames
