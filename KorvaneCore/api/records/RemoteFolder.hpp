#pragma once

#include "KRCrypto/Bytes.hpp"

#include <boost/describe/class.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Korvane {

/// A folder as the server knows it. The root has no parent, and may have no name.
struct RemoteFolder {
    std::string id;
    std::optional<std::string> parentId;
    std::optional<KRCrypto::Bytes> metaEnc; ///< sealed metadata
    std::optional<std::string> nameBlindIndex;
    std::optional<std::chrono::system_clock::time_point> createdAt;
    std::optional<std::chrono::system_clock::time_point> updatedAt;
    std::optional<std::chrono::system_clock::time_point> deletedAt;
    std::optional<std::int64_t> seq;

    bool operator==(const RemoteFolder&) const = default;
};
BOOST_DESCRIBE_STRUCT(RemoteFolder, (),
                      (id, parentId, metaEnc, nameBlindIndex, createdAt, updatedAt, deletedAt, seq))

} // namespace Korvane
