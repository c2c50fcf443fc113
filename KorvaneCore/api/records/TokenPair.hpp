#pragma once

#include "KorvaneCore/json/SecretText.hpp"

#include <boost/describe.hpp>

namespace Korvane {

/// A signed-in device's right to call the API.
struct TokenPair {
    SecretText accessToken;
    SecretText refreshToken;

    bool operator==(const TokenPair&) const = default;
};
BOOST_DESCRIBE_STRUCT(TokenPair, (), (accessToken, refreshToken))

struct RefreshRequest {
    SecretText refreshToken;

    bool operator==(const RefreshRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(RefreshRequest, (), (refreshToken))

} // namespace Korvane
