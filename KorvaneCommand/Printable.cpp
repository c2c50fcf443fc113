#include "KorvaneCommand/Printable.hpp"

#include "KRCrypto/UnicodeText.hpp"

#include <fmt/format.h>

#include <iterator>

namespace Korvane {

std::string printable(const std::string& text) {
    const auto isControl = [](char32_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); };
    std::string shown;
    for (KRCrypto::CodePoints points(text); !points.atEnd();) {
        const auto point = points.tryNext();
        if (point && !isControl(*point))
            KRCrypto::appendUTF8(shown, *point);
        else
            shown += '?';
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
