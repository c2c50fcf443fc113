#pragma once

#include "KorvaneCore/storage/SQLiteDatabase.hpp"

#include <boost/describe/class.hpp>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

/// What is in a local index, in numbers.
struct IndexStatistics {
    struct Transfers {
        std::int64_t pending = 0;
        std::int64_t running = 0;
        std::int64_t failed = 0;
        std::int64_t done = 0;
        std::int64_t paused = 0;
    };

    std::int64_t schemaVersion = 0;
    std::int64_t fileSize = 0; ///< bytes on disk, with what is not yet in the main file
    std::int64_t files = 0;    ///< this and the next two: what is not in the Trash
    std::int64_t folders = 0;
    std::int64_t bytes = 0;
    std::int64_t trashed = 0;
    std::optional<std::string> lastSeq; ///< as it is stored
    std::int64_t maxItemSeq = 0;
    std::int64_t journalEntries = 0;
    Transfers transfers;
    std::int64_t pinned = 0;
};
BOOST_DESCRIBE_STRUCT(IndexStatistics::Transfers, (), (pending, running, failed, done, paused))
BOOST_DESCRIBE_STRUCT(IndexStatistics, (),
                      (schemaVersion, fileSize, files, folders, bytes, trashed, lastSeq, maxItemSeq,
                       journalEntries, transfers, pinned))

/// Something that should not be in a local index.
struct IndexProblem {
    std::string what; ///< one sentence
    std::int64_t count = 0;
    std::vector<std::string> examples; ///< at most ten, mostly ids of items
};
BOOST_DESCRIBE_STRUCT(IndexProblem, (), (what, count, examples))

/// Looks at the file of a local index without changing it, whatever version it has, at one moment: what other
/// processes write meanwhile is not seen. Throws SQLiteError. Not for several threads.
class IndexInspector {
public:
    explicit IndexInspector(const std::filesystem::path& url);

    [[nodiscard]] IndexStatistics statistics();

    /// Damage SQLite finds and, where it finds none, what contradicts itself in the items, the journal and
    /// the sequence numbers. Reads everything.
    [[nodiscard]] std::vector<IndexProblem> problems();

private:
    SQLiteDatabase database_;
    std::int32_t version_;
};

} // namespace Korvane
