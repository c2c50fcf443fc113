#include "KorvaneCore/storage/PathPrefix.hpp"

namespace Korvane {

namespace {

/// A byte from 0xC0 on takes the continuation bytes after it along, any other byte stands for itself, valid
/// UTF-8 or not.
std::int64_t characters(const std::string& text) {
    std::int64_t count = 0;
    bool open = false;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (open && (byte & 0xC0U) == 0x80U)
            continue;
        open = byte >= 0xC0U;
        ++count;
    }
    return count;
}

} // namespace

PathPrefix::PathPrefix(const std::string& folder) : length(characters(folder) + 1), text(folder + "/") {}

} // namespace Korvane
