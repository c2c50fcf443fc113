#pragma once

#include <string_view>

namespace KRCrypto {

// The end of a file name that numbers and shortening leave alone: from its last dot, when that is not its
// first character and 2 to 16 characters without a space follow, the dot included; else nothing. The name is
// UTF-8, and borrowed.
std::string_view extensionOf(std::string_view name);

} // namespace KRCrypto
