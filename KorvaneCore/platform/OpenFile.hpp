#pragma once

#include "KorvaneCore/platform/FileDescriptor.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

namespace Korvane {

/// A regular file read or written piece by piece. What fails throws FileError.
class OpenFile {
public:
    /// Never blocks on a pipe or device: std::errc::invalid_argument.
    static OpenFile forReading(std::filesystem::path path);

    /// A new file, 0600: std::errc::file_exists when there is one.
    static OpenFile create(std::filesystem::path path);

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

    [[nodiscard]] std::uint64_t size() const;

    /// Fills `into` from `offset` on; std::errc::io_error when the file ends before.
    void readAt(std::uint64_t offset, std::span<std::uint8_t> into) const;

    void append(std::span<const std::uint8_t> bytes);

private:
    OpenFile(std::filesystem::path path, int flags);

    std::filesystem::path path_;
    FileDescriptor fd_;
};

} // namespace Korvane
