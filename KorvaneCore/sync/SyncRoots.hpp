#pragma once

#include "KorvaneCore/storage/LocalIndex.hpp"

#include <boost/describe/class.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

/// A local folder that is mirrored to a folder of the account.
struct SyncRoot {
    std::string id;
    std::string path;     ///< absolute, without a slash at the end
    std::string folderId; ///< of the account

    bool operator==(const SyncRoot&) const = default;
};
BOOST_DESCRIBE_STRUCT(SyncRoot, (), (id, path, folderId))

/// The sync roots, kept in the local index. Throw SQLiteError.
namespace SyncRoots {

[[nodiscard]] std::vector<SyncRoot> all(LocalIndex& index);

[[nodiscard]] std::optional<SyncRoot> find(LocalIndex& index, const std::string& id);

void add(LocalIndex& index, const SyncRoot& root);

/// When a round last looked at everything below it; the beginning of time before the first. By the clock that
/// dates files.
[[nodiscard]] std::chrono::system_clock::time_point lookedAt(LocalIndex& index, const std::string& id);

void setLookedAt(LocalIndex& index, const std::string& id, std::chrono::system_clock::time_point time);

/// With what was last reconciled below it. The folder's content stays, here and in the account.
void remove(LocalIndex& index, const std::string& id);

} // namespace SyncRoots

} // namespace Korvane
