#include "KorvaneCore/config/Text.hpp"

#include <algorithm>
#include <array>

namespace Korvane {

namespace {

// Unicode 15 White_Space, in UTF-8.
constexpr std::array<std::string_view, 25> whiteSpace = {
    "\t",           "\n",           "\v",           "\f",           "\r",           " ",
    "\xC2\x85",     "\xC2\xA0",     "\xE1\x9A\x80", "\xE2\x80\x80", "\xE2\x80\x81", "\xE2\x80\x82",
    "\xE2\x80\x83", "\xE2\x80\x84", "\xE2\x80\x85", "\xE2\x80\x86", "\xE2\x80\x87", "\xE2\x80\x88",
    "\xE2\x80\x89", "\xE2\x80\x8A", "\xE2\x80\xA8", "\xE2\x80\xA9", "\xE2\x80\xAF", "\xE2\x81\x9F",
    "\xE3\x80\x80"};

} // namespace

std::string_view trimmed(std::string_view text) noexcept {
    const auto leading = [&](std::string_view space) { return text.starts_with(space); };
    const auto trailing = [&](std::string_view space) { return text.ends_with(space); };
    for (auto space = std::ranges::find_if(whiteSpace, leading); space != whiteSpace.end();
         space = std::ranges::find_if(whiteSpace, leading))
        text.remove_prefix(space->size());
    for (auto space = std::ranges::find_if(whiteSpace, trailing); space != whiteSpace.end();
         space = std::ranges::find_if(whiteSpace, trailing))
        text.remove_suffix(space->size());
    return text;
}

std::string asciiLowerCased(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

} // namespace Korvane
