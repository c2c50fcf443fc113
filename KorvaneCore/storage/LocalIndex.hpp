#pragma once

#include "KorvaneCore/platform/Mutex.hpp"
#include "KorvaneCore/storage/IndexItem.hpp"
#include "KorvaneCore/storage/IndexedPath.hpp"
#include "KorvaneCore/storage/SQLiteDatabase.hpp"
#include "KorvaneCore/storage/TransferRecord.hpp"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Korvane {

class Clock;

/// The local mirror of the user's tree ("index.sqlite"), with the transfer queue and what was last reconciled
/// with the sync roots.
///
/// Callable from any thread; calls of one object run one after the other. Several processes may have the file
/// open: a writer waits up to 5 s for another. Every operation throws SQLiteError when SQLite refuses, and an
/// operation that throws has changed nothing. Texts are UTF-8; storing a name that is not throws
/// KRCryptoError, and looking for one finds nothing. A negative limit is none.
class LocalIndex {
public:
    using Date = std::chrono::system_clock::time_point;
    using Bytes = std::vector<std::uint8_t>;

    /// Opens the file, or creates it, and brings its schema up to the current version; a newer one is left as
    /// it is. `clock` says when things happened (default: the system's).
    explicit LocalIndex(const std::filesystem::path& url);
    LocalIndex(const std::filesystem::path& url, std::shared_ptr<Clock> clock);

    /// For who only looks: the file must exist, is taken in the version it has, and every change is refused.
    [[nodiscard]] static LocalIndex openReadOnly(const std::filesystem::path& url);

    [[nodiscard]] const std::filesystem::path& url() const noexcept { return url_; }

    /// Empties every table; the schema stays.
    void reset();

    // Keys and values.

    [[nodiscard]] std::optional<std::string> value(const std::string& key);
    void setValue(const std::optional<std::string>& value, const std::string& key); ///< none removes the key

    /// The keys that begin with "<folder>/"; and setValue() of all or none.
    [[nodiscard]] std::map<std::string, std::string> values(const std::string& folder);
    void setValues(const std::map<std::string, std::optional<std::string>>& values);

    /// The cursor in the change feed; 0 when there is none.
    [[nodiscard]] std::int64_t lastSeq();
    void setLastSeq(std::int64_t seq);

    // Writing items.

    /// Writes the item over what is stored, but for a higher `seq`, which stays; journals that it left its
    /// folder. The second form writes all or none.
    void upsert(const IndexItem& item);
    void upsert(std::span<const IndexItem> items);

    /// upsert() of the server's record (see indexItem(), also for what is thrown).
    void apply(const RemoteFolder& folder, const KRCrypto::MasterKey& masterKey);
    void apply(const RemoteFile& file, const KRCrypto::MasterKey& masterKey);

    void remove(const std::string& id);                  ///< without a word in the journal
    void purge(const std::string& id, std::int64_t seq); ///< removes and journals
    void markDeleted(const std::string& id, Date at);    ///< to the Trash
    void setHasThumbnail(const std::string& id, bool has);

    // The journal: what consumers of "changes since" cannot see from the items. A consumer at `s` reads
    // maxItemSeq() first, then items(s, …) and journalEntries(s, thatMaximum), and goes on from the maximum.

    /// The numbers are those of the database.
    enum class JournalKind : std::int64_t {
        purged = 0,   ///< the item is gone
        movedOut = 1, ///< the item left its old parent
    };

    struct JournalEntry {
        std::int64_t seq = 0;
        std::string itemId;
        std::optional<std::string> oldParentId;
        JournalKind kind = JournalKind::purged;

        bool operator==(const JournalEntry&) const = default;
    };

    /// Entries kept; older ones go.
    static constexpr int journalCapacity = 20'000;

    /// Entries with after < seq <= upTo, by seq.
    [[nodiscard]] std::vector<JournalEntry> journalEntries(std::int64_t after, std::int64_t upTo);
    [[nodiscard]] std::int64_t maxJournalSeq(); ///< 0 when empty

    // Reading items. Names are compared in lower case; "live" is what is not in the Trash itself.

    [[nodiscard]] std::optional<IndexItem> item(const std::string& id);

    /// The folders of a folder, then its files, each by name.
    [[nodiscard]] std::vector<IndexItem> children(const std::string& of, bool includeDeleted = false);

    /// A live child; any of several with that name.
    [[nodiscard]] std::optional<IndexItem> child(const std::string& of, std::string_view named);

    /// The live item on a "/"-separated path from a folder, through live ones; empty components are passed
    /// over, so "" is the folder itself.
    [[nodiscard]] std::optional<IndexItem> item(std::string_view atPath, const std::string& under);

    /// The live folders without a parent.
    [[nodiscard]] std::vector<IndexItem> roots();

    /// The names from a folder down to the item; empty for the folder itself, none when the item does not lie
    /// under it.
    [[nodiscard]] std::optional<std::vector<std::string>> pathComponents(const std::string& of,
                                                                         const std::string& under);

    /// The parent, its parent and so on. A chain that runs in a circle ends before it repeats.
    [[nodiscard]] std::vector<IndexItem> ancestors(const std::string& of);

    [[nodiscard]] bool isDescendant(const std::string& id, const std::string& of);

    /// Live items but roots with the text in their name, folders first, each by name. Nothing for no text.
    [[nodiscard]] std::vector<IndexItem> search(std::string_view text, std::int64_t limit);

    /// Live files, the latest updated first.
    [[nodiscard]] std::vector<IndexItem> recentFiles(std::int64_t limit);

    /// Live files that came through a drop.
    [[nodiscard]] std::vector<IndexItem> receivedFiles();

    /// Everything below a folder that is reached through live folders, in no order; never the folder itself.
    [[nodiscard]] std::vector<IndexedPath> descendants(const std::string& of);

    [[nodiscard]] std::int64_t folderSize(const std::string& id); ///< bytes of the files among descendants()

    struct Counts {
        std::int64_t files = 0;
        std::int64_t folders = 0;
        std::int64_t bytes = 0;

        bool operator==(const Counts&) const = default;
    };

    [[nodiscard]] Counts counts(); ///< live items

    /// Files reachable from a live root through live folders only.
    [[nodiscard]] std::vector<IndexItem> liveFileItems();

    /// Items with a higher seq, by seq.
    [[nodiscard]] std::vector<IndexItem> items(std::int64_t changedAfter, std::int64_t limit);
    [[nodiscard]] std::int64_t maxItemSeq(); ///< 0 when empty

    /// Whether the item and all folders above it are known and live, up to a root.
    [[nodiscard]] bool isLive(const std::string& id);

    /// Live files with a MIME type of images whose contentDate() lies in [from, to), by that date, then by
    /// id. Only those whose present content was last reconciled with a file of this device; whether that is
    /// still there is not asked.
    [[nodiscard]] std::vector<IndexItem> reconciledPictures(Date from, Date to, std::int64_t limit,
                                                            std::int64_t offset);

    /// The earliest contentDate() of live images.
    [[nodiscard]] std::optional<Date> earliestPicture();

    /// The key of any item with that content.
    [[nodiscard]] std::optional<Bytes> wrappedKey(const std::string& forBlobId);

    // The sync base: what was last reconciled, by root and by "/"-separated path in it.

    struct BaseEntry {
        std::string relPath;
        std::string itemId;
        bool isFolder = false;
        std::int64_t version = 0;
        std::int64_t localSize = 0; ///< in bytes
        double localMtime = 0;      ///< seconds since 1970
        std::uint64_t inode = 0;
        std::optional<std::string> sha256;

        bool operator==(const BaseEntry&) const = default;
    };

    struct BaseLocation {
        std::string rootId;
        std::string relPath;

        bool operator==(const BaseLocation&) const = default;
    };

    [[nodiscard]] std::map<std::string, BaseEntry> baseEntries(const std::string& root); ///< by relPath
    void setBase(const std::string& root, const BaseEntry& entry);

    /// Recursive: with everything below the path.
    void removeBase(const std::string& root, const std::string& relPath, bool recursive);

    /// Renames the path and everything below it. Throws when a new path is taken.
    void moveBase(const std::string& root, const std::string& from, const std::string& to);
    void clearBase(const std::string& root);

    struct ItemBase {
        std::string rootId;
        BaseEntry entry;

        bool operator==(const ItemBase&) const = default;
    };

    /// What was last reconciled for an item, below whichever roots, by root and path.
    [[nodiscard]] std::vector<ItemBase> basesOf(const std::string& itemId);

    /// Where this version of a file lies on disk.
    [[nodiscard]] std::optional<BaseLocation> baseLocation(const std::string& itemId, std::int64_t version);

    // Transfers. At most one pending, running or paused record has a given dedupe key.

    /// What to do with a record whose dedupe key belongs to a running one.
    enum class WhileRunning : std::uint8_t { leaveOut, insertWithoutKey };

    /// The pending, failed and paused records with this dedupe key: those that insertTransfer() replaces.
    [[nodiscard]] std::vector<TransferRecord> replaceableTransfers(const std::string& dedupeKey);

    /// Stores the record in place of pending, failed and paused ones with its dedupe key. Gives whether it
    /// was stored.
    bool insertTransfer(const TransferRecord& record, const std::optional<std::string>& dedupeKey = {},
                        WhileRunning whileRunning = WhileRunning::leaveOut);

    /// Writes everything but kind and creation date. Throws when that would make a second active record with
    /// the record's dedupe key.
    void updateTransfer(const TransferRecord& record);
    void setTransferProgress(const std::string& id, std::int64_t progress, std::int64_t total);

    [[nodiscard]] std::optional<TransferRecord> transfer(const std::string& id);

    /// Records in any of the states (default: all), in no order.
    [[nodiscard]] std::vector<TransferRecord>
    transfers(const std::optional<std::vector<TransferRecord::State>>& states, std::int64_t limit);

    /// The identities of records in any of the states, in no order.
    [[nodiscard]] std::vector<std::string> transferIds(const std::vector<TransferRecord::State>& states,
                                                       std::int64_t limit);

    /// The dedupe keys with this prefix of pending, running and paused records.
    [[nodiscard]] std::set<std::string> activeDedupeKeys(const std::string& prefix);

    /// Where a record stands among those that wait.
    struct WaitingPosition {
        double createdAt = 0;   ///< as stored
        double nextAttempt = 0; ///< as stored
        std::int64_t row = 0;
    };

    struct RunnablePage {
        std::vector<TransferRecord> records;
        std::vector<WaitingPosition> positions; ///< of each
    };

    /// Pending records that are due, oldest first; only those after a position, when that is given.
    [[nodiscard]] std::vector<TransferRecord> runnableTransfers(std::int64_t limit, Date now);
    [[nodiscard]] RunnablePage runnablePage(std::int64_t limit, Date now,
                                            const std::optional<WaitingPosition>& after);

    /// Makes a record running if it is pending, and gives it; none when it is not.
    [[nodiscard]] std::optional<TransferRecord> takeTransfer(const std::string& id);

    /// When the next pending record is due; of those due later than `after` only, when that is given.
    [[nodiscard]] std::optional<Date> nextTransferWakeup(const std::optional<Date>& after = {});

    /// Makes pending records that wait for a later time due now.
    void makeTransfersDue();

    /// Moves the time that pending and paused records due after `from` wait for.
    void delayTransfers(Date from, std::chrono::duration<double> by);

    /// Makes pending and paused records due that were created after now: the clock was ahead then.
    void makeTransfersOfTheFutureDue();

    void deleteTransfer(const std::string& id);
    void pruneDoneTransfers(std::chrono::seconds olderThan); ///< by creation
    void resetRunningTransfers();                            ///< running ones become pending
    void setTransfersPaused(bool paused);                    ///< pending ones become paused, or back

    /// Makes failed records pending as new. Of those with one dedupe key only the newest stays, and none
    /// where another record with it is active.
    void retryFailedTransfers();

    // Pins: items kept offline.

    [[nodiscard]] std::map<std::string, std::int64_t> pinnedIds(); ///< with the version on disk, 0 for none
    [[nodiscard]] std::vector<IndexItem> pinnedItems(); ///< the live ones, in the order they were pinned in
    void setPinned(const std::string& id, bool pinned);

    /// What lies on disk of a pinned item; nothing for one that is not pinned.
    void setPinnedVersion(const std::string& id, std::int64_t version,
                          const std::optional<std::string>& path);

    // Camera assets that were uploaded, by the camera roll's own identifiers.

    [[nodiscard]] std::set<std::string> uploadedAssetIds();
    void markAssetUploaded(const std::string& localId, const std::optional<std::string>& fileId);
    [[nodiscard]] std::int64_t uploadedAssetCount();

    // Keys of shares, sealed.

    struct ShareKey {
        std::string shareId;
        std::string entityId;
        Bytes sealed;

        bool operator==(const ShareKey&) const = default;
    };

    void saveShareKey(const std::string& shareId, const std::string& entityId,
                      std::span<const std::uint8_t> sealed);
    [[nodiscard]] std::vector<ShareKey> shareKeys();
    void removeShareKey(const std::string& shareId);

    // The activity log shown to the user; it keeps its newest 1,001 rows.

    struct Activity {
        std::int64_t id = 0;
        Date at;
        std::string kind;
        std::string title;
        std::optional<std::string> detail;
        bool isError = false;

        bool operator==(const Activity&) const = default;
    };

    void log(const std::string& kind, const std::string& title, const std::optional<std::string>& detail = {},
             bool isError = false);
    [[nodiscard]] std::vector<Activity> recentActivity(std::int64_t limit); ///< newest first

private:
    LocalIndex(const std::filesystem::path& url, std::shared_ptr<Clock> clock, bool readOnly);

    [[nodiscard]] Date now() const;

    std::filesystem::path url_;
    std::shared_ptr<Clock> clock_;
    Mutex mutex_;
    SQLiteDatabase database_ KR_GUARDED_BY(mutex_);
};

} // namespace Korvane
