#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"

#include <string_view>

namespace KRCrypto::Internal {

// A key from X25519 and two public keys, which go into the HKDF salt one after the other, so that it holds
// for this exchange only. Throws InvalidKeyLength, InvalidPublicKey.
SecretBytes agreedKey(ByteView myPriv, ByteView theirPub, std::string_view label, ByteView firstPub,
                      ByteView secondPub);

} // namespace KRCrypto::Internal
