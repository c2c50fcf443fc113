#pragma once

#include <boost/json/storage_ptr.hpp>
#include <boost/json/value.hpp>

#include <string_view>

namespace Korvane {

/// Parses one JSON text whose numbers become the nearest double, so that a number written is the same one
/// when read: Boost.JSON's own parser is off by the last bit now and then. Nesting is bounded at 32 levels.
/// Throws JSONError.
[[nodiscard]] boost::json::value parseJSON(std::string_view text, boost::json::storage_ptr storage);

} // namespace Korvane
