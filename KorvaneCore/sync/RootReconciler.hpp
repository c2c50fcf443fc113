#pragma once

#include "KorvaneCore/jobs/JobContext.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"
#include "KorvaneCore/storage/StatusDatabase.hpp"
#include "KorvaneCore/sync/OwnWriteTracker.hpp"
#include "KorvaneCore/sync/RootLedger.hpp"
#include "KorvaneCore/sync/SyncRoots.hpp"

#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>

namespace Korvane {

/// Brings what changed below a sync root to the account: makes folders, moves what was moved, and hands new
/// and changed files to the queue. What was removed here stays in the account, and what changed there does
/// not come here, but for the other version of a file that became a conflict copy.
///
/// Operations are coroutines on the caller's executor; for one root one at a time. They throw APIError,
/// SQLiteError and FileError; what was done until then is kept, and the next reconcile goes on.
class RootReconciler {
public:
    struct Parts {
        JobContext context;
        std::shared_ptr<TransferQueue> queue;
        std::shared_ptr<StatusDatabase> status;
        std::shared_ptr<OwnWriteTracker> ownWrites;
    };

    /// All that could be done was done, and something is left for another try.
    class Incomplete : public std::runtime_error {
    public:
        Incomplete() : runtime_error("some entries of a root could not be mirrored yet") {}
    };

    explicit RootReconciler(Parts parts) : parts_(std::move(parts)) {}

    /// Waits for outcomes that are being handled, so not to be awaited while one is. Throws Incomplete too.
    asio::awaitable<void> reconcile(SyncRoot root);

    /// What becomes of a file of a root, as the queue says. A transfer of another root or origin is no
    /// concern. Gives the id of the root when it must be reconciled again.
    asio::awaitable<std::optional<std::string>> settled(TransferOutcome outcome);

private:
    [[nodiscard]] RootLedger ledgerOf(SyncRoot root) const;
    [[nodiscard]] std::optional<RootLedger> ledgerOf(const std::optional<TransferOrigin>& origin) const;
    asio::awaitable<bool> takeUp(const RootLedger& ledger, const TransferOutcome& outcome);
    asio::awaitable<bool> failed(const RootLedger& ledger, const TransferOutcome::Failed& failed);
    asio::awaitable<bool> uploaded(const RootLedger& ledger, const UploadJob& job, std::string itemId,
                                   std::int64_t version);
    asio::awaitable<std::string> keepConflictCopy(const RootLedger& ledger, const UploadJob& job);
    static asio::awaitable<std::optional<std::string>> renameConflictCopy(const RootLedger& ledger,
                                                                          const UploadJob& job);
    asio::awaitable<bool> downloaded(const RootLedger& ledger, const TransferOutcome::Downloaded& download);
    asio::awaitable<void> takeUpUnheardOf(const RootLedger& ledger);

    Parts parts_;
    std::set<std::string> reconciled_; ///< roots, in this process
};

} // namespace Korvane
