#pragma once

#include <boost/describe/enum.hpp>

namespace Korvane {

enum class WidgetFamily { small, medium, large };
BOOST_DESCRIBE_ENUM(WidgetFamily, small, medium, large)

} // namespace Korvane
