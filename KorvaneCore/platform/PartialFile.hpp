#pragma once

#include "KorvaneCore/platform/FileDescriptor.hpp"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <system_error>

namespace Korvane {

/// A file under a temporary name that takes its place whole, or not at all. Blocking; one thread at a time.
/// Errors are FileError, but for placing, whose error number is the caller's to word.
class PartialFile {
public:
    /// No file.
    PartialFile() = default;

    /// Creates the file (0600), in place of whatever has that name.
    explicit PartialFile(std::filesystem::path path);

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

    void append(std::span<const std::uint8_t> bytes);

    /// Brings the content to the disk, with this modification time if there is one, and closes the file.
    void finish(const std::optional<std::chrono::system_clock::time_point>& modified);

    /// Gives it the permissions of the file at `destination`, whose place it is to take.
    [[nodiscard]] std::error_code takePermissions(const std::filesystem::path& destination) const;

    /// Moves it to `destination`; std::errc::file_exists when something is there. The name is on the disk on
    /// success, here as below.
    [[nodiscard]] std::error_code place(const std::filesystem::path& destination) const;

    /// Moves it to `destination`, over what is there.
    [[nodiscard]] std::error_code placeOver(const std::filesystem::path& destination) const;

    /// Changes places with what is at `destination`, which is under path() afterwards.
    /// std::errc::invalid_argument from file systems that cannot.
    [[nodiscard]] std::error_code exchange(const std::filesystem::path& destination) const;

private:
    std::filesystem::path path_;
    FileDescriptor fd_;
};

/// Renames without ever replacing: std::errc::file_exists when the new name is taken.
[[nodiscard]] std::error_code renameToFreeName(const std::filesystem::path& from,
                                               const std::filesystem::path& to) noexcept;

} // namespace Korvane
