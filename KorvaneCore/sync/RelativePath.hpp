#pragma once

#include <string>

/// Paths below a sync root: "/"-separated, none for the root itself.
namespace Korvane::RelativePath {

[[nodiscard]] inline std::string name(const std::string& path) {
    return path.substr(path.rfind('/') + 1); // npos + 1 is 0
}

[[nodiscard]] inline std::string parent(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

[[nodiscard]] inline std::string child(const std::string& folder, const std::string& name) {
    return folder.empty() ? name : folder + "/" + name;
}

/// The path after `from` has become `to`; the same when it is not `from` and not below it.
[[nodiscard]] inline std::string moved(const std::string& path, const std::string& from,
                                       const std::string& to) {
    return path == from || path.starts_with(from + "/") ? to + path.substr(from.size()) : path;
}

} // namespace Korvane::RelativePath
