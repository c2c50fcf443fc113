#include "KorvaneCore/storage/StatusDatabase.hpp"

#include "KorvaneCore/config/KRIdentifiers.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/storage/PathPrefix.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace Korvane {

namespace {

/// The first of these found in a folder is the folder's.
constexpr std::array byUrgency{PathStatus::error,  PathStatus::conflict, PathStatus::syncing,
                               PathStatus::queued, PathStatus::synced,   PathStatus::excluded};

constexpr auto schema = "CREATE TABLE IF NOT EXISTS status (path TEXT PRIMARY KEY, state TEXT NOT NULL, "
                        "item_id TEXT, updated_at REAL "
                        "NOT NULL);"
                        "CREATE TABLE IF NOT EXISTS roots (path TEXT PRIMARY KEY, remote_id TEXT);";

void write(SQLiteDatabase& database, const StatusDatabase::Entry& entry, Clock::Time now) {
    database.run(
        "INSERT INTO status(path,state,item_id,updated_at) VALUES(?,?,?,?) ON CONFLICT(path) DO UPDATE SET "
        "state=excluded.state, item_id=COALESCE(excluded.item_id, status.item_id), "
        "updated_at=excluded.updated_at",
        entry.path, entry.state, entry.itemId, now);
}

} // namespace

StatusDatabase::StatusDatabase(const std::filesystem::path& url, NotificationCenter notifications,
                               std::shared_ptr<Clock> clock)
    : clock_(std::move(clock)), database_(url), notifications_(std::move(notifications)) {
    database_.execute(schema);
}

void StatusDatabase::set(PathStatus status, const std::string& path,
                         const std::optional<std::string>& itemId) {
    const MutexLock lock(mutex_);
    write(database_, {path, status, itemId}, clock_->now());
    postChanged();
}

void StatusDatabase::setMany(const std::vector<Entry>& entries) {
    const MutexLock lock(mutex_);
    database_.transaction([&](SQLiteDatabase& database) {
        for (const auto& entry : entries)
            write(database, entry, clock_->now());
    });
    postChanged();
}

void StatusDatabase::remove(const std::string& path, bool recursive) {
    const MutexLock lock(mutex_);
    database_.transaction([&](SQLiteDatabase& database) {
        database.run("DELETE FROM status WHERE path=?", path);
        if (recursive) {
            const PathPrefix below(path);
            database.run("DELETE FROM status WHERE substr(path,1,?)=?", below.length, below.text);
        }
    });
    postChanged();
}

std::optional<PathStatus> StatusDatabase::status(const std::string& path) {
    const MutexLock lock(mutex_);
    const auto rows = database_.query("SELECT state FROM status WHERE path=?", path);
    return rows.empty() ? std::nullopt : pathStatus(rows.front().string("state").value_or(""));
}

std::map<std::string, PathStatus> StatusDatabase::statusesBelow(const std::string& folder) {
    const MutexLock lock(mutex_);
    const PathPrefix below(folder);
    std::map<std::string, PathStatus> statuses;
    for (const auto& row :
         database_.query("SELECT path, state FROM status WHERE substr(path,1,?)=?", below.length, below.text))
        if (const auto status = pathStatus(row.string("state").value_or("")))
            statuses.emplace(row.string("path").value_or(""), *status);
    return statuses;
}

std::optional<PathStatus> StatusDatabase::aggregateStatus(const std::string& folder) {
    const MutexLock lock(mutex_);
    const PathPrefix below(folder);
    const auto rows = database_.query("SELECT DISTINCT state FROM status WHERE path=? OR substr(path,1,?)=?",
                                      folder, below.length, below.text);
    const auto* const first = std::ranges::find_if(byUrgency, [&](PathStatus status) {
        return std::ranges::any_of(
            rows, [&](const SQLRow& row) { return row.string("state") == badgeIdentifier(status); });
    });
    return first == byUrgency.end() ? std::nullopt : std::optional(*first);
}

std::optional<std::string> StatusDatabase::itemId(const std::string& path) {
    const MutexLock lock(mutex_);
    const auto rows = database_.query("SELECT item_id FROM status WHERE path=?", path);
    return rows.empty() ? std::nullopt : rows.front().string("item_id");
}

void StatusDatabase::setRoots(const std::vector<Root>& roots) {
    const MutexLock lock(mutex_);
    database_.transaction([&](SQLiteDatabase& database) {
        database.run("DELETE FROM roots");
        for (const auto& root : roots)
            database.run("INSERT INTO roots(path, remote_id) VALUES(?,?)", root.path, root.remoteId);
    });
    postChanged();
}

std::vector<std::string> StatusDatabase::roots() {
    const MutexLock lock(mutex_);
    std::vector<std::string> paths;
    for (const auto& row : database_.query("SELECT path FROM roots")) {
        if (auto path = row.string("path"))
            paths.push_back(std::move(*path));
    }
    return paths;
}

void StatusDatabase::clearRoot(const std::string& path) {
    remove(path, true);
}

void StatusDatabase::clearAll() {
    const MutexLock lock(mutex_);
    database_.transaction(
        [&](SQLiteDatabase& database) { database.execute("DELETE FROM status; DELETE FROM roots;"); });
    postChanged();
}

void StatusDatabase::postChanged() {
    try {
        notifications_.post(KRIdentifiers::statusChangedNotification);
    } catch (const FileError& error) {
        Log::error("status", error.what());
    }
}

} // namespace Korvane
