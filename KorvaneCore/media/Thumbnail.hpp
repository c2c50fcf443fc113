#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace Korvane {

/// A picture that cannot be opened or is no picture. what() says why, without naming the file.
class ThumbnailError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A JPEG of the picture in `file`, turned upright by its EXIF orientation, at most `maxSide` pixels on its
/// longer side and never larger than the original. Throws ThumbnailError. Callable from any thread; takes
/// tens of milliseconds, so not on an event thread.
[[nodiscard]] std::string makeThumbnail(const std::filesystem::path& file, int maxSide = 512);

} // namespace Korvane
