#pragma once

#include "KorvaneService/ServiceState.hpp"

#include <string>

/// URLs that carry their own right: whoever has one may do that one thing until it expires. The signature is
/// an HMAC over method, path and expiry.
namespace Korvane::StorageURL {

[[nodiscard]] std::string putPart(const ServiceState& state, const std::string& uploadId, std::int64_t part);
[[nodiscard]] std::string getBlob(const ServiceState& state, const std::string& blobFolder);

/// When a URL made now expires.
[[nodiscard]] Clock::Time expiry(const ServiceState& state);

/// Throws Refusal (403) unless the request's URL was made here and has not expired.
void check(const ServiceState& state, const Request& request);

} // namespace Korvane::StorageURL
