#pragma once

#include "KorvaneCore/platform/Async.hpp"
#include "KorvaneCore/platform/NotificationCenter.hpp"
#include "KorvaneCore/queue/TransferOutcome.hpp"
#include "KorvaneCore/sync/LocalCopies.hpp"

#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Korvane {

class QueueRequests;
class TransferQueue;

/// Keeps what the user pinned on this device: pinned files, and the files below pinned folders. One whose
/// content lies below a sync root is here already; any other is downloaded to a folder of its own.
///
/// Held by shared_ptr. Copies are recorded with their looks. One that was changed since is the user's: it is
/// neither replaced nor removed (a download moves it aside). Operations throw SQLiteError, and FileError when
/// a change cannot be announced; what was done until then is kept, and the next keep() goes on.
class OfflineCopies : public std::enable_shared_from_this<OfflineCopies> {
public:
    struct Parts {
        std::shared_ptr<LocalIndex> index;
        std::shared_ptr<TransferQueue> queue;
        std::shared_ptr<QueueRequests> requests;
        NotificationCenter notifications;
        std::filesystem::path folder; ///< of the copies
    };

    explicit OfflineCopies(Parts parts);

    /// Pins an item. Its download is for the next keep(), of whichever process runs the queue.
    void pin(const std::string& itemId);

    /// Unpins an item: copies and downloads that no other pin asks for go. Looks at the disk.
    void unpin(const std::string& itemId);

    /// Removes copies nothing asks for and enqueues what is missing. For the process that runs the queue,
    /// one call at a time; on the caller's executor.
    asio::awaitable<void> keep();

    /// Takes up a pinned file that the queue has downloaded. Other outcomes are no concern.
    asio::awaitable<void> settled(TransferOutcome outcome);

    /// Whether the file, or every file below the folder, can be opened without the network. Looks at the
    /// disk.
    [[nodiscard]] bool has(const IndexItem& item);

    /// Removes all copies, before the index forgets them. For a process that owns the queue.
    static void removeAll(LocalIndex& index, const std::filesystem::path& folder);

private:
    /// A file to be kept whose content is not here.
    struct Missing {
        IndexItem item;
        std::filesystem::path destination;
        std::optional<LocalStat> present; ///< what lies there
        std::optional<LocalStat> guard;   ///< the same, if it is a copy to be replaced
    };

    using Files = std::map<std::string, IndexItem>; ///< by item id

    [[nodiscard]] Files wanted();
    void removeUnwanted(const Files& wanted);
    [[nodiscard]] std::vector<Missing> missing();
    [[nodiscard]] std::map<std::string, std::set<std::string>> downloads();
    asio::awaitable<bool> adopt(const Missing& file);
    void record(const std::string& itemId, std::int64_t version, const std::filesystem::path& path,
                const LocalStat& stat, const std::optional<std::string>& sha256);
    void announce();

    Parts parts_;
    LocalCopies copies_;
};

} // namespace Korvane
