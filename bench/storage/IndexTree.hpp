#pragma once

#include "KorvaneCore/storage/IndexItem.hpp"
#include "KorvaneCore/storage/TransferRecord.hpp"

#include <cstdint>
#include <string>

/// A generated tree with realistic names: item 0 is the root, and item n is the same in a tree of any size.
///
/// - folder `cameraFolder` holds the next 1,000 items, all files;
/// - below folder `archiveFolder` lie the 100,000 items after it;
/// - one item in 20 is a folder elsewhere.
namespace Korvane::Bench::IndexTree {

inline constexpr std::int64_t cameraFolder = 1;
inline constexpr std::int64_t archiveFolder = 1002;

/// In the names of five items of the camera folder, and nowhere else.
inline constexpr auto rareText = "quokka";

[[nodiscard]] std::string id(std::int64_t number);
[[nodiscard]] IndexItem item(std::int64_t number);

/// A pending upload of the queue, due at its creation.
[[nodiscard]] TransferRecord transfer(std::int64_t number);

} // namespace Korvane::Bench::IndexTree
