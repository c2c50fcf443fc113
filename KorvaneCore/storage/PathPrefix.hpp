#pragma once

#include <cstdint>
#include <string>

namespace Korvane {

/// What every path below a folder begins with, as the two arguments of substr(path,1,?)=?.
struct PathPrefix {
    explicit PathPrefix(const std::string& folder);

    std::int64_t length; ///< in characters, as SQLite's substr() counts them
    std::string text;    ///< the folder and a slash
};

} // namespace Korvane
