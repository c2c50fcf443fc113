#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/MasterKey.hpp"
#include "KRCrypto/SecretBytes.hpp"

#include <string>

// Handing the master key to a new device: X25519 between the approving and the new device, and a code both
// show.
namespace KRCrypto::PairingCrypto {

// The same on both devices. Throws InvalidKeyLength, InvalidPublicKey.
SecretBytes pairKey(ByteView myPriv, ByteView theirPub, ByteView approverPub, ByteView newDevicePub);

// On the approving device.
Bytes pairSeal(ByteView myPriv, ByteView myPub, ByteView theirPub, const MasterKey& mk);

// On the new device. Throws further as KRCrypto::open, and InvalidKeyLength when the box holds no master key.
MasterKey pairOpen(ByteView myPriv, ByteView theirPub, ByteView myPub, ByteView sealed);

// The code: 16 decimal digits of a hash of `data`, for which both devices take what they exchanged.
std::string pairingDigits(ByteView data);

} // namespace KRCrypto::PairingCrypto
