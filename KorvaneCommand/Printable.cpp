#include "KorvaneCommand/Printable.hpp"

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

} // namespace Korvane
