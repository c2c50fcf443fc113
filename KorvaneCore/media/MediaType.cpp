#include "KorvaneCore/media/MediaType.hpp"

#include "KorvaneCore/platform/FileDescriptor.hpp"
#include "KorvaneCore/platform/Files.hpp"

#include <fcntl.h>
#include <magic.h>

#include <cerrno>
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
    const FileDescriptor fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd.isOpen())
        throw FileError("open", file, {errno, std::generic_category()});

    // A cookie is not safe to share between threads; opening one costs a mapping of the compiled database.
    const Magic magic(magic_open(MAGIC_MIME_TYPE | MAGIC_ERROR));
    if (magic == nullptr || magic_load(magic.get(), nullptr) != 0)
        throw FileError("load the type database for", file,
                        std::make_error_code(std::errc::no_such_file_or_directory));
    const char* type = magic_descriptor(magic.get(), fd.get());
    if (type == nullptr)
        throw FileError("read", file, {magic_errno(magic.get()), std::generic_category()});
    // An empty file tells nothing, and neither do folders and devices.
    const std::string_view found = type;
    return found.starts_with("inode/") || found == "application/x-empty" ? "application/octet-stream" : type;
}

} // namespace Korvane
