#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/QuickSendPayload.hpp"

// The JSON text of a Quick Send item, without spaces, in this order of keys:
//
//   {"v":1,"kind":"text","text":"…","sentAt":"…"}
//   {"v":1,"kind":"link","url":"…","sentAt":"…"}
//   {"v":1,"kind":"file","fileId":"…","name":"…","mime":"…","size":0,"sentAt":"…"}
namespace KRCrypto::QuickSendJSON {

// Throws InvalidEncoding when a text is not UTF-8.
Bytes encode(const QuickSendPayload& payload);

// Wants version 1 and a known kind, ignores other keys. Throws InvalidMeta, also beyond 256 KiB.
QuickSendPayload decode(ByteView json);

} // namespace KRCrypto::QuickSendJSON
