#pragma once

#include <boost/describe/enum.hpp>

namespace Korvane {

/// Whom the service lets vouch for a user.
enum class SSOProvider { google, apple };
BOOST_DESCRIBE_ENUM(SSOProvider, google, apple)

} // namespace Korvane
