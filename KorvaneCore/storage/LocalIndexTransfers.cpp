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
    std::string sql = "SELECT * FROM transfers";
    std::vector<SQLValue> args;
    if (states) {
        sql += " WHERE state IN (";
        for (const auto state : *states) {
            sql += args.empty() ? "?" : ",?";
            args.push_back(sqlValue(state));
        }
        sql += ")";
    }
    args.push_back(sqlValue(limit));
    const MutexLock lock(mutex_);
    return recordsOf(database_.query(sql + " LIMIT ?", std::span<const SQLValue>(args)));
}

std::vector<TransferRecord> LocalIndex::runnableTransfers(std::int64_t limit, Date now) {
    const MutexLock lock(mutex_);
    return recordsOf(database_.query(
        "SELECT * FROM transfers WHERE state=0 AND next_attempt<=? ORDER BY created_at LIMIT ?", now, limit));
}

std::optional<LocalIndex::Date> LocalIndex::nextTransferWakeup() {
    const MutexLock lock(mutex_);
    return database_.query("SELECT MIN(next_attempt) AS n FROM transfers WHERE state=0").at(0).date("n");
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
