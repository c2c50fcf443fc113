#pragma once

#include <boost/describe/class.hpp>

#include <cstdint>
#include <filesystem>
#include <optional>

namespace Korvane {

/// What a local path looked like at one moment: the guard against working on a file that has changed since.
struct LocalStat {
    std::int64_t size = 0; ///< bytes
    double mtime = 0;      ///< seconds since 1970
    std::uint64_t inode = 0;
    bool isDirectory = false;

    bool operator==(const LocalStat&) const = default;
};

BOOST_DESCRIBE_STRUCT(LocalStat, (), (size, mtime, inode, isDirectory))

/// The path as it is now, a link itself rather than what it points to; none when nothing exists there. Throws
/// FileError when the system does not tell.
[[nodiscard]] std::optional<LocalStat> localStat(const std::filesystem::path& path);

} // namespace Korvane
