#include "KorvaneCore/media/MediaType.hpp"

#include "KorvaneCore/platform/Files.hpp"

#include <magic.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <string_view>
#include <type_traits>

namespace Korvane {

namespace {

struct MagicCloser {
    void operator()(magic_t cookie) const { magic_close(cookie); }
};

using Magic = std::unique_ptr<std::remove_pointer_t<magic_t>, MagicCloser>;

} // namespace

std::string mediaType(const std::filesystem::path& file) {
    std::error_code error;
    if (!std::filesystem::exists(file, error))
        throw FileError("find", file,
                        error ? error : std::make_error_code(std::errc::no_such_file_or_directory));

    // A cookie is not safe to share between threads; opening one costs a mapping of the compiled database.
    const Magic magic(magic_open(MAGIC_MIME_TYPE | MAGIC_SYMLINK | MAGIC_ERROR));
    if (magic == nullptr || magic_load(magic.get(), nullptr) != 0)
        throw FileError("load the type database for", file,
                        std::make_error_code(std::errc::no_such_file_or_directory));
    const char* type = magic_file(magic.get(), file.c_str());
    if (type == nullptr)
        throw FileError("read", file, {magic_errno(magic.get()), std::generic_category()});
    std::string found(type);
    std::ranges::transform(found, found.begin(), [](unsigned char c) { return std::tolower(c); });
    // An empty file tells nothing, and neither do folders and devices.
    const bool tellsNothing = found.starts_with("inode/") || found == "application/x-empty";
    return tellsNothing ? "application/octet-stream" : found;
}

} // namespace Korvane
