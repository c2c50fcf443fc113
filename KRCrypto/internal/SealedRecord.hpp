#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"

#include <string_view>

namespace KRCrypto::Internal {

// Boxes of JSON records, whose size is limited before memory is taken for them: a record has at most
// mostRecordBytes. Sealing a longer one throws SizeMismatch, opening a box that could only hold a longer one
// InvalidMeta; else as KRCrypto::seal and open.
Bytes sealRecord(ByteView key, ByteView json, std::string_view aad);
SecretBytes openRecord(ByteView key, ByteView sealed, std::string_view aad);

} // namespace KRCrypto::Internal
