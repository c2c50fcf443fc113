#include "KorvaneCommand/Printable.hpp"

#include "KRCrypto/UnicodeText.hpp"

#include <fmt/format.h>

#include <iterator>

namespace Korvane {

namespace {

bool isControl(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c < 0xA0);
}

/// Lets text read otherwise than it is written: Unicode's Bidi_Control.
bool turnsText(char32_t c) {
    return c == 0x61C || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) ||
           (c >= 0x2066 && c <= 0x2069);
}

} // namespace

std::string printable(const std::string& text) {
    std::string shown;
    for (KRCrypto::CodePoints points(text); !points.atEnd();) {
        const auto point = points.tryNext();
        if (point && !isControl(*point) && !turnsText(*point))
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
