#pragma once

#include "KRCrypto/Bytes.hpp"

#include <string>
#include <string_view>

namespace KRCrypto {

// Lower-case hex, two digits a byte.
std::string hexString(ByteView data);

namespace Hex {

// Digits of either case. Throws InvalidEncoding on an odd length or anything that is no digit.
Bytes decode(std::string_view text);

// The value of a hex digit, or -1.
int digitValue(char c) noexcept;

} // namespace Hex

} // namespace KRCrypto
