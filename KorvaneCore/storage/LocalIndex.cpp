#include "KorvaneCore/storage/LocalIndex.hpp"

#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/storage/IndexSchema.hpp"

#include <utility>

namespace Korvane {

LocalIndex::LocalIndex(const std::filesystem::path& url) : LocalIndex(url, systemClock()) {}

LocalIndex::LocalIndex(const std::filesystem::path& url, std::shared_ptr<Clock> clock)
    : LocalIndex(url, std::move(clock), false) {
    const MutexLock lock(mutex_);
    IndexSchema::migrate(database_);
}

LocalIndex::LocalIndex(const std::filesystem::path& url, std::shared_ptr<Clock> clock, bool readOnly)
    : url_(url), clock_(std::move(clock)), database_(url, readOnly) {}

LocalIndex LocalIndex::openReadOnly(const std::filesystem::path& url) {
    return {url, systemClock(), true};
}

LocalIndex::Date LocalIndex::now() const {
    return clock_->now();
}

void LocalIndex::reset() {
    const MutexLock lock(mutex_);
    database_.transaction([](SQLiteDatabase& database) {
        database.execute("DELETE FROM items; DELETE FROM kv; DELETE FROM transfers; DELETE FROM sync_base; "
                         "DELETE FROM pinned; DELETE FROM camera_assets; DELETE FROM share_keys; "
                         "DELETE FROM activity; DELETE FROM item_journal;");
    });
}

std::optional<std::string> LocalIndex::value(const std::string& key) {
    const MutexLock lock(mutex_);
    const auto rows = database_.query("SELECT value FROM kv WHERE key=?", key);
    return rows.empty() ? std::nullopt : rows.front().string("value");
}

void LocalIndex::setValue(const std::optional<std::string>& value, const std::string& key) {
    const MutexLock lock(mutex_);
    if (value)
        database_.run(
            "INSERT INTO kv(key,value) VALUES(?,?) ON CONFLICT(key) DO UPDATE SET value=excluded.value", key,
            *value);
    else
        database_.run("DELETE FROM kv WHERE key=?", key);
}

std::int64_t LocalIndex::lastSeq() {
    const MutexLock lock(mutex_);
    const auto rows = database_.query("SELECT value FROM kv WHERE key=?", "lastSeq");
    return rows.empty() ? 0 : rows.front().intValue("value").value_or(0);
}

void LocalIndex::setLastSeq(std::int64_t seq) {
    setValue(std::to_string(seq), "lastSeq");
}

} // namespace Korvane
