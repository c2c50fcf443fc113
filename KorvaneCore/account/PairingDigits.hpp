#pragma once

#include "KRCrypto/Bytes.hpp"

#include <string>
#include <string_view>

/// The 16 digits that both devices of a pairing show.
namespace Korvane::PairingDigits {

/// Of the two public keys, the approving device's first.
[[nodiscard]] std::string of(KRCrypto::ByteView approverPublicKey, KRCrypto::ByteView newDevicePublicKey);

/// For the eye: "1234 5678 9012 3456".
[[nodiscard]] std::string grouped(std::string_view digits);

/// What someone typed, without the spaces and hyphens that people put between digits. Codes are typed
/// likewise.
[[nodiscard]] std::string bare(std::string_view typed);

/// Whether someone typed these digits, with spaces and hyphens where they like.
[[nodiscard]] bool same(std::string_view typed, std::string_view digits);

} // namespace Korvane::PairingDigits
