#pragma once

#include "KorvaneCore/storage/IndexItem.hpp"

#include <string>

namespace Korvane {

/// An item found below a folder, with its way there.
struct IndexedPath {
    std::string relativePath; ///< names from the folder down to the item's own, separated by "/"
    IndexItem item;

    bool operator==(const IndexedPath&) const = default;
};

} // namespace Korvane
