#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/EntryMeta.hpp"

// The canonical JSON text of metadata: no spaces, fixed order of keys, the name in NFC.
//
//   {"v":1,"name":"…"}
//   {"v":1,"name":"…","mime":"…","size":0,"sha256":"…"}             and ,"mtime":"…" before the brace when
//   present
namespace KRCrypto::MetaJSON {

// Throws InvalidEncoding when a text is not UTF-8 or the name does not compose (toNFC).
Bytes encode(const EntryMeta& meta);

// An object with a key "mime" is a file. Unknown keys are ignored. Throws InvalidMeta, also beyond 256 KiB.
EntryMeta decode(ByteView json);

// What must hold of opened metadata: version 1; for a file a size that is not negative and a hash of 64 hex
// digits. Throws InvalidMeta. Names are not judged.
void validate(const EntryMeta& meta);

// decode, then validate.
EntryMeta decodeValid(ByteView json);

} // namespace KRCrypto::MetaJSON
