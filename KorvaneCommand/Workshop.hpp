#pragma once

#include "KorvaneCommand/Client.hpp"
#include "KorvaneCommand/TimedRunner.hpp"
#include "KorvaneCore/jobs/JobContext.hpp"
#include "KorvaneCore/platform/FileLock.hpp"
#include "KorvaneCore/platform/NotificationCenter.hpp"
#include "KorvaneCore/publisher/WidgetPublisher.hpp"
#include "KorvaneCore/queue/QueueRequests.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "KorvaneCore/storage/StatusDatabase.hpp"
#include "KorvaneCore/sync/OfflineCopies.hpp"

#include <memory>
#include <optional>
#include <string>

namespace Korvane {

/// A signed-in client with its index and its transfer queue, for commands that move files. Nothing moves
/// until a SyncSession starts it.
class Workshop {
public:
    /// Throws APIError (NotSignedIn), SQLiteError, and std::runtime_error while another process is at work
    /// for another account.
    Workshop();

    Client client;
    std::shared_ptr<LocalIndex> index;
    std::shared_ptr<StatusDatabase> status;
    std::shared_ptr<TransferQueue> queue;
    std::shared_ptr<QueueRequests> requests;
    std::shared_ptr<OfflineCopies> offline;

    [[nodiscard]] static NotificationCenter notifications();

    /// How long any transfer of this process ran.
    [[nodiscard]] Clock::Duration transferTime() const { return runner_->busyTime(); }

    [[nodiscard]] JobContext jobContext();

    /// The queue is run by one process at a time: by this one from here until leaveQueue(), if it says true.
    [[nodiscard]] bool ownQueue();
    void leaveQueue();

    /// Brings the index up to the account. Throws APIError, SQLiteError.
    asio::awaitable<void> pull();

    /// pull(), unless the account cannot be reached now: then the index stays as it is.
    asio::awaitable<void> pullIfPossible();

    /// Asks for what is pinned and not here, unless another process runs the queue: that one does it, once it
    /// knows of the pins.
    asio::awaitable<void> keepOffline();

    /// Publishes what the widgets are to show today, if that is anything new.
    asio::awaitable<WidgetPublisher::Publication> publishWidgets();

    /// The folder or file on a "/"-separated path below the account's root folder.
    [[nodiscard]] std::optional<IndexItem> itemAt(const std::string& path);

    /// The item's path below the account's root folder; none when it is not there.
    [[nodiscard]] std::optional<std::string> pathOf(const IndexItem& item);

    /// The folder on that path, made where it is missing.
    asio::awaitable<std::string> folderAt(std::string path);

private:
    std::shared_ptr<const KRCrypto::MasterKey> masterKey_;
    std::string rootFolderId_;
    std::optional<FileLock> lock_; ///< while this process may run the queue
    std::shared_ptr<TimedRunner> runner_;
    std::shared_ptr<WidgetPublisher> publisher_;
};

} // namespace Korvane
