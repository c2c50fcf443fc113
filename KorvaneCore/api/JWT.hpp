#pragma once

#include "KorvaneCore/json/JSONValue.hpp"

#include <map>
#include <optional>
#include <string>
#include <string_view>

/// What an access token (RFC 7519) says about itself. Nothing here checks a signature: that is the server's
/// business. None for whatever does not read as such a token.
namespace Korvane::JWT {

[[nodiscard]] std::optional<std::map<std::string, JSONValue>> payload(std::string_view token);
[[nodiscard]] std::optional<std::string> stringClaim(std::string_view name, std::string_view token);

/// "exp": seconds since 1970.
[[nodiscard]] std::optional<double> expiry(std::string_view token);

} // namespace Korvane::JWT
