#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

#include <boost/describe.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

/// An entry of a share as whoever has the link sees it: nothing in it names a file of the account.
struct PublicShareEntry {
    std::string entryId;
    std::optional<std::string> parentEntryId; ///< none for what was shared itself
    KRCrypto::Bytes metaEnc;
    std::optional<KRCrypto::Bytes> wrappedKey;
    std::optional<std::int64_t> encryptedSize;
    std::optional<std::int64_t> chunkCount;

    bool operator==(const PublicShareEntry&) const = default;
};
BOOST_DESCRIBE_STRUCT(PublicShareEntry, (),
                      (entryId, parentEntryId, metaEnc, wrappedKey, encryptedSize, chunkCount))

struct PublicShare {
    std::optional<KRCrypto::Bytes> passwordSalt;
    std::optional<KRJSON::Date> expiresAt;
    std::vector<PublicShareEntry> entries;

    bool operator==(const PublicShare&) const = default;
};
BOOST_DESCRIBE_STRUCT(PublicShare, (), (passwordSalt, expiresAt, entries))

} // namespace Korvane
