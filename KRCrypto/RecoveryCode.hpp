#pragma once

#include "KRCrypto/SecretBytes.hpp"

#include <string_view>

namespace KRCrypto {

// The text of a recovery secret: Base32 (RFC 4648) without padding, in groups of four joined by "-". A secret
// of 32 bytes gives 13 groups, 64 characters.
SecretBytes formatRecoveryCode(ByteView secret);

// The 32 bytes back, from upper or lower case ASCII letters with hyphens and white space anywhere. Throws
// InvalidRecoveryCode; look-alike digits are not mapped, and the four spare bits must be zero.
SecretBytes parseRecoveryCode(std::string_view text);

} // namespace KRCrypto
