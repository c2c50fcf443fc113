#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>

namespace Korvane {

/// Whether the bytes are one whole JPEG stream (ITU-T T.81 annex B): start marker, well-formed segments up to
/// the first scan with a frame of a size in them, an end marker after it. The picture itself is not decoded;
/// that is the host's work.
[[nodiscard]] bool isJPEG(std::string_view bytes) noexcept;

/// Whether `file` is a readable regular file, not a link, of at most `maxSize` bytes holding a JPEG. Never
/// throws.
[[nodiscard]] bool isJPEGFile(const std::filesystem::path& file, std::size_t maxSize) noexcept;

} // namespace Korvane
