#include "KRCrypto/FileExtension.hpp"

#include <algorithm>

namespace KRCrypto {

namespace {

constexpr std::ptrdiff_t fewestCharacters = 2;
constexpr std::ptrdiff_t mostCharacters = 16;

// Continuation bytes do not count.
std::ptrdiff_t characterCount(std::string_view text) {
    return std::ranges::count_if(text,
                                 [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; });
}

} // namespace

std::string_view extensionOf(std::string_view name) {
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0)
        return {};
    const auto extension = name.substr(dot);
    const auto characters = characterCount(extension);
    const bool plausible = characters >= fewestCharacters && characters <= mostCharacters &&
                           extension.find(' ') == std::string_view::npos;
    return plausible ? extension : std::string_view();
}

} // namespace KRCrypto
