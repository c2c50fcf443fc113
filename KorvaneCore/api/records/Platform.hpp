#pragma once

#include <boost/describe/enum.hpp>

namespace Korvane {

/// What a device runs. This client is "macos" to the service.
enum class Platform { macos, ios, web };
BOOST_DESCRIBE_ENUM(Platform, macos, ios, web)

} // namespace Korvane
