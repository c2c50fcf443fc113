// The transfer queue's table.
#include "KorvaneCore/storage/LocalIndex.hpp"

namespace Korvane {

namespace {

std::vector<TransferRecord> recordsOf(const std::vector<SQLRow>& rows) {
    std::vector<TransferRecord> records;
    records.reserve(rows.size());
    for (const auto& row : rows)
        records.push_back(transferRecord(row));
    return records;
}

struct Selection {
    std::string where;
    std::vector<SQLValue> args;
};

Selection inStates(const std::vector<TransferRecord::State>& states) {
    Selection selection;
    for (const auto state : states) {
        selection.where += selection.args.empty() ? " WHERE state IN (?" : ",?";
        selection.args.push_back(sqlValue(state));
    }
    selection.where += selection.args.empty() ? " WHERE 0" : ")";
    return selection;
}

bool isRunning(SQLiteDatabase& database, const std::string& dedupeKey) {
    return !database.query("SELECT id FROM transfers WHERE dedupe_key=? AND state=1", dedupeKey).empty();
}

void insert(SQLiteDatabase& database, const TransferRecord& record,
            const std::optional<std::string>& dedupeKey) {
    database.run("INSERT OR REPLACE INTO transfers(id,kind,state,payload,attempts,next_attempt,last_error,"
                 "progress,total,created_at,title,dedupe_key) VALUES(?,?,?,?,?,?,?,?,?,?,?,?)",
                 record.id, record.kind, record.state, record.payload, record.attempts, record.nextAttempt,
                 record.lastError, record.progress, record.total, record.createdAt, record.title, dedupeKey);
}

} // namespace

std::vector<TransferRecord> LocalIndex::replaceableTransfers(const std::string& dedupeKey) {
    const MutexLock lock(mutex_);
    return recordsOf(
        database_.query("SELECT * FROM transfers WHERE dedupe_key=? AND state IN (0,2,4)", dedupeKey));
}

bool LocalIndex::insertTransfer(const TransferRecord& record, const std::optional<std::string>& dedupeKey,
                                WhileRunning whileRunning) {
    const MutexLock lock(mutex_);
    return database_.transaction([&](SQLiteDatabase& database) {
        if (!dedupeKey) {
            insert(database, record, std::nullopt);
            return true;
        }
        database.run("DELETE FROM transfers WHERE dedupe_key=? AND state IN (0,2,4)", *dedupeKey);
        if (!isRunning(database, *dedupeKey)) {
            insert(database, record, dedupeKey);
            return true;
        }
        if (whileRunning == WhileRunning::leaveOut)
            return false;
        insert(database, record, std::nullopt);
        return true;
    });
}

void LocalIndex::updateTransfer(const TransferRecord& record) {
    const MutexLock lock(mutex_);
    database_.run("UPDATE transfers SET state=?,payload=?,attempts=?,next_attempt=?,last_error=?,progress=?,"
                  "total=?,title=? WHERE id=?",
                  record.state, record.payload, record.attempts, record.nextAttempt, record.lastError,
                  record.progress, record.total, record.title, record.id);
}

void LocalIndex::setTransferProgress(const std::string& id, std::int64_t progress, std::int64_t total) {
    const MutexLock lock(mutex_);
    database_.run("UPDATE transfers SET progress=?, total=? WHERE id=?", progress, total, id);
}

std::optional<TransferRecord> LocalIndex::transfer(const std::string& id) {
    const MutexLock lock(mutex_);
    const auto rows = database_.query("SELECT * FROM transfers WHERE id=?", id);
    return rows.empty() ? std::nullopt : std::optional(transferRecord(rows.front()));
}

std::vector<TransferRecord>
LocalIndex::transfers(const std::optional<std::vector<TransferRecord::State>>& states, std::int64_t limit) {
    auto selection = states ? inStates(*states) : Selection();
    selection.args.push_back(sqlValue(limit));
    const MutexLock lock(mutex_);
    return recordsOf(database_.query("SELECT * FROM transfers" + selection.where + " LIMIT ?",
                                     std::span<const SQLValue>(selection.args)));
}

std::vector<std::string> LocalIndex::transferIds(const std::vector<TransferRecord::State>& states,
                                                 std::int64_t limit) {
    auto selection = inStates(states);
    selection.args.push_back(sqlValue(limit));
    const MutexLock lock(mutex_);
    std::vector<std::string> ids;
    for (const auto& row : database_.query("SELECT id FROM transfers" + selection.where + " LIMIT ?",
                                           std::span<const SQLValue>(selection.args)))
        ids.push_back(row.string("id").value_or(""));
    return ids;
}

std::set<std::string> LocalIndex::activeDedupeKeys(const std::string& prefix) {
    std::set<std::string> keys;
    const MutexLock lock(mutex_);
    for (const auto& row :
         database_.query("SELECT dedupe_key FROM transfers WHERE state IN (0,1,4) AND dedupe_key>=?", prefix))
        if (auto key = row.string("dedupe_key").value_or(""); key.starts_with(prefix))
            keys.insert(std::move(key));
    return keys;
}

std::vector<TransferRecord> LocalIndex::runnableTransfers(std::int64_t limit, Date now) {
    return runnablePage(limit, now, std::nullopt).records;
}

LocalIndex::RunnablePage LocalIndex::runnablePage(std::int64_t limit, Date now,
                                                  const std::optional<WaitingPosition>& after) {
    // The index is named because SQLite, left to itself, reads and sorts all that are due.
    const std::string due = "SELECT rowid AS row, * FROM transfers INDEXED BY transfers_waiting "
                            "WHERE state=0 AND next_attempt<=? ";
    const std::string order = "ORDER BY created_at, next_attempt, rowid LIMIT ?";
    const MutexLock lock(mutex_);
    const auto rows =
        after ? database_.query(due + "AND (created_at, next_attempt, rowid) > (?, ?, ?) " + order, now,
                                after->createdAt, after->nextAttempt, after->row, limit)
              : database_.query(due + order, now, limit);
    RunnablePage page;
    for (const auto& row : rows) {
        page.records.push_back(transferRecord(row));
        page.positions.push_back({row.doubleValue("created_at").value_or(0),
                                  row.doubleValue("next_attempt").value_or(0),
                                  row.intValue("row").value_or(0)});
    }
    return page;
}

std::optional<TransferRecord> LocalIndex::takeTransfer(const std::string& id) {
    const MutexLock lock(mutex_);
    return database_.transaction([&](SQLiteDatabase& database) -> std::optional<TransferRecord> {
        const auto rows = database.query("SELECT * FROM transfers WHERE id=?", id);
        if (rows.empty())
            return std::nullopt;
        auto record = transferRecord(rows.front());
        if (record.state != TransferRecord::State::pending)
            return std::nullopt;
        record.state = TransferRecord::State::running;
        database.run("UPDATE transfers SET state=? WHERE id=?", record.state, id);
        return record;
    });
}

std::optional<LocalIndex::Date> LocalIndex::nextTransferWakeup(const std::optional<Date>& after) {
    const MutexLock lock(mutex_);
    const auto rows =
        after ? database_.query(
                    "SELECT MIN(next_attempt) AS n FROM transfers WHERE state=0 AND next_attempt>?", *after)
              : database_.query("SELECT MIN(next_attempt) AS n FROM transfers WHERE state=0");
    return rows.at(0).date("n");
}

void LocalIndex::makeTransfersDue() {
    const MutexLock lock(mutex_);
    database_.run("UPDATE transfers SET next_attempt=?1 WHERE state=0 AND next_attempt>?1", now());
}

void LocalIndex::delayTransfers(Date from, std::chrono::duration<double> by) {
    const MutexLock lock(mutex_);
    database_.run("UPDATE transfers SET next_attempt=next_attempt+? WHERE state IN (0,4) AND next_attempt>?",
                  by.count(), from);
}

void LocalIndex::makeTransfersOfTheFutureDue() {
    const MutexLock lock(mutex_);
    database_.run(
        "UPDATE transfers SET next_attempt=?1 WHERE state IN (0,4) AND created_at>?1 AND next_attempt>?1",
        now());
}

void LocalIndex::deleteTransfer(const std::string& id) {
    const MutexLock lock(mutex_);
    database_.run("DELETE FROM transfers WHERE id=?", id);
}

void LocalIndex::pruneDoneTransfers(std::chrono::seconds olderThan) {
    const MutexLock lock(mutex_);
    database_.run("DELETE FROM transfers WHERE state=3 AND created_at<?", now() - olderThan);
}

void LocalIndex::resetRunningTransfers() {
    const MutexLock lock(mutex_);
    database_.run("UPDATE transfers SET state=0 WHERE state=1");
}

void LocalIndex::setTransfersPaused(bool paused) {
    const MutexLock lock(mutex_);
    database_.run(paused ? "UPDATE transfers SET state=4 WHERE state=0"
                         : "UPDATE transfers SET state=0 WHERE state=4");
}

void LocalIndex::retryFailedTransfers() {
    const MutexLock lock(mutex_);
    database_.transaction([&](SQLiteDatabase& database) {
        // After these two no key is left twice, so the last cannot break the unique index.
        database.run(
            "DELETE FROM transfers WHERE state=2 AND dedupe_key IS NOT NULL AND dedupe_key IN (SELECT "
            "dedupe_key FROM transfers WHERE state IN (0,1,4) AND dedupe_key IS NOT NULL)");
        database.run(
            "DELETE FROM transfers WHERE state=2 AND dedupe_key IS NOT NULL AND EXISTS (SELECT 1 FROM "
            "transfers AS newer WHERE newer.state=2 AND newer.dedupe_key=transfers.dedupe_key AND "
            "(newer.created_at > transfers.created_at OR (newer.created_at = transfers.created_at AND "
            "newer.rowid > transfers.rowid)))");
        database.run(
            "UPDATE transfers SET state=0, attempts=0, next_attempt=?, last_error=NULL WHERE state=2", now());
    });
}

} // namespace Korvane
