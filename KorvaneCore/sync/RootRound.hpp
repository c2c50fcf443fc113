#pragma once

#include "KorvaneCore/api/APIError.hpp"
#include "KorvaneCore/jobs/JobContext.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"
#include "KorvaneCore/sync/QueuedUploads.hpp"
#include "KorvaneCore/sync/RootLedger.hpp"
#include "KorvaneCore/sync/SyncPlan.hpp"

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Korvane {

/// One reconcile of a sync root. What cannot be done with one entry is left for a later round and keeps
/// nothing else from being done; what would go wrong with all of them, as without a network, ends it.
class RootRound {
public:
    /// All outlive the round.
    RootRound(const JobContext& context, TransferQueue& queue, const RootLedger& ledger);

    /// False when something was left for a later round. Throws APIError that concerns all calls, SQLiteError,
    /// and FileError when the root cannot be listed.
    asio::awaitable<bool> run();

private:
    asio::awaitable<bool> hasFolder();
    [[nodiscard]] RootLedger::Base baseOfLiveFolders() const;
    using States = std::map<std::string, PathStatus>;
    void tidyStates(const States& states, const LocalScan& scan,
                    const std::vector<std::string>& unchanged) const;
    void markSkipped(const LocalScan& scan);
    asio::awaitable<void> giveUpGone(const LocalScan& scan);
    asio::awaitable<void> attempt(std::string relPath, asio::awaitable<void> work);

    asio::awaitable<void> makeFolder(SyncPlan::NewFolder entry);
    asio::awaitable<std::optional<RemoteFolder>> freeFolder(std::string name, std::string parentId);
    asio::awaitable<void> move(SyncPlan::Move move);
    asio::awaitable<void> cancelBelow(std::string folder);
    asio::awaitable<bool> rename(SyncPlan::BaseEntry base, std::string name, std::string parentId);
    asio::awaitable<KRCrypto::FileMeta> metaOf(std::string itemId);

    using Time = std::chrono::system_clock::time_point;
    asio::awaitable<void> compareAll(std::vector<SyncPlan::Upload> doubtful, Time lookedAt);
    asio::awaitable<void> compare(SyncPlan::Upload doubtful);
    asio::awaitable<void> send(SyncPlan::Upload file);
    asio::awaitable<bool> isInAccount(SyncPlan::Upload file);
    static asio::awaitable<bool> hasContent(std::string path, LocalStat stat, std::string sha256);
    asio::awaitable<void> enqueue(SyncPlan::Upload file);

    [[nodiscard]] const std::string& parentId(const std::string& relPath) const;
    [[nodiscard]] bool isOurs(const std::string& folderId) const;

    const JobContext& context_;
    TransferQueue& queue_;
    const RootLedger& ledger_;
    std::shared_ptr<const KRCrypto::MasterKey> masterKey_;
    QueuedUploads queued_;
    std::map<std::string, std::string> folders_;             ///< item ids of the root's folders, by path
    std::vector<std::pair<std::string, std::string>> moved_; ///< in this round: from, to
    bool isComplete_ = true;
};

} // namespace Korvane
