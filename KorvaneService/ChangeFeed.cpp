#include "KorvaneService/ChangeFeed.hpp"

#include "KorvaneService/Columns.hpp"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

namespace Korvane {

namespace json = boost::json;

std::int64_t ChangeFeed::nextSeq() const {
    database_->run("UPDATE users SET latest_seq = latest_seq + 1 WHERE id = ?", session_.userId);
    return latestSeq();
}

std::int64_t ChangeFeed::latestSeq() const {
    const auto rows = database_->query("SELECT latest_seq FROM users WHERE id = ?", session_.userId);
    return Columns::integer(rows.at(0), "latest_seq");
}

void ChangeFeed::record(std::string_view entityType, const std::string& entityId, std::string_view op,
                        std::int64_t seq, const std::optional<std::string>& entity) const {
    database_->run(
        "INSERT INTO changes (user_id, seq, entity_type, entity_id, op, device_id, created_at, entity) "
        "VALUES (?,?,?,?,?,?,?,?)",
        session_.userId, seq, entityType, entityId, op, session_.deviceId, state_->now(), entity);
}

std::string ChangeFeed::page(std::int64_t since, std::int64_t limit) const {
    const auto rows =
        database_->query("SELECT * FROM changes WHERE user_id = ? AND seq > ? ORDER BY seq LIMIT ?",
                         session_.userId, since, limit);
    const auto latest = latestSeq();
    json::array changes;
    for (const auto& row : rows) {
        json::object change{{"seq", Columns::integer(row, "seq")},
                            {"entityType", Columns::text(row, "entity_type")},
                            {"entityId", Columns::text(row, "entity_id")},
                            {"op", Columns::text(row, "op")},
                            {"createdAt", KRJSON::formatDate(Columns::date(row, "created_at"))}};
        if (const auto device = row.string("device_id"))
            change["deviceId"] = *device;
        if (const auto entity = row.string("entity"))
            change["entity"] = json::parse(*entity);
        changes.push_back(std::move(change));
    }
    const bool hasMore = !rows.empty() && Columns::integer(rows.back(), "seq") < latest;
    return json::serialize(
        json::object{{"changes", std::move(changes)}, {"latestSeq", latest}, {"hasMore", hasMore}});
}

} // namespace Korvane
