#pragma once

#include <filesystem>
#include <string>

namespace Korvane {

/// The MIME type of a file by its content, such as "image/jpeg", lower-case and without parameters;
/// "application/octet-stream" when the content tells nothing. Throws FileError when the file cannot be read.
/// Callable from any thread; reads the file, so not on an event thread.
[[nodiscard]] std::string mediaType(const std::filesystem::path& file);

} // namespace Korvane
