#include "KorvaneCommand/Printable.hpp"

#include <fmt/format.h>

#include <iterator>

namespace Korvane {

std::string printable(const std::string& text) {
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool c1 = byte >= 0x80 && byte < 0xA0 && !shown.empty() && shown.back() == '\xC2';
        if (c1)
            shown.pop_back();
        shown += c1 || byte < 0x20 || byte == 0x7F ? '?' : c;
    }
    return shown;
}

std::string byteCount(double bytes) {
    static constexpr const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    std::size_t unit = 0;
    for (; bytes >= 1024 && unit + 1 < std::size(units); ++unit)
        bytes /= 1024;
    return fmt::format("{:.{}f} {}", bytes, unit == 0 ? 0 : 1, units[unit]);
}

} // namespace Korvane
