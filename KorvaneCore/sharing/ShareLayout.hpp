#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Korvane {

/// An entry of a share, opened.
struct ShareNode {
    std::string entryId;
    std::optional<std::string> parentEntryId; ///< none for what was shared itself
    std::string name;                         ///< as whoever made the share wrote it
    bool isFolder = false;
};

/// Where a node goes.
struct ShareTarget {
    std::size_t node = 0;       ///< index of the node
    std::filesystem::path path; ///< relative; the first one's is a single name that all others are below
};

/// Where the entries of a share go on the disk: folders before what lies in them, no two at one place. Names
/// come from a stranger, so each is cleaned to one path component first (see DropCrypto::sanitizeName), and
/// equal ones are numbered. Throws ShareError (altered) unless the nodes form one tree.
[[nodiscard]] std::vector<ShareTarget> shareLayout(std::span<const ShareNode> nodes);

} // namespace Korvane
