#include "KorvaneCore/api/records/Shares.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneService/Columns.hpp"
#include "KorvaneService/Tree.hpp"
#include "KorvaneService/routes/Routes.hpp"

namespace Korvane {

namespace {

Share shareOf(const SQLRow& row) {
    Share share;
    share.id = Columns::text(row, "id");
    share.token = row.string("token");
    share.entityType = Columns::text(row, "entity_type");
    share.entityId = Columns::text(row, "entity_id");
    share.passwordSalt = row.data("password_salt");
    share.expiresAt = row.date("expires_at");
    share.createdAt = row.date("created_at");
    share.revokedAt = row.date("revoked_at");
    share.downloads = row.intValue("downloads").value_or(0);
    share.views = row.intValue("views").value_or(0);
    share.entryCount = row.intValue("entries");
    return share;
}

std::string selectShares(const std::string& condition) {
    return "SELECT s.*, c.views, c.downloads, (SELECT COUNT(*) FROM share_entries e WHERE e.share_id = s.id) "
           "AS entries FROM shares s LEFT JOIN share_counts c ON c.share_id = s.id "
           "WHERE s.user_id = ?1" +
           condition + " ORDER BY s.created_at, s.id";
}

Share found(Exchange& exchange, const std::string& id) {
    const auto rows = exchange.database.query(selectShares(" AND s.id = ?2"), exchange.session.userId, id);
    if (rows.empty())
        throw Refusal::notFound("no such share");
    return shareOf(rows[0]);
}

Share recorded(Exchange& exchange, const std::string& id, std::string_view op) {
    auto share = found(exchange, id);
    const ChangeFeed feed(exchange.state, exchange.database, exchange.session);
    feed.record("share", id, op, feed.nextSeq(), KRJSON::write(share));
    return share;
}

void upsert(Exchange& exchange, const std::string& shareId, const std::vector<ShareEntry>& entries) {
    for (const auto& entry : entries) {
        if (entry.entryId.empty())
            throw Refusal::badRequest("an entry has an identifier");
        exchange.database.run("INSERT INTO share_entries (share_id, entry_id, entry) VALUES (?1,?2,?3) "
                              "ON CONFLICT DO UPDATE SET entry = ?3",
                              shareId, entry.entryId, KRJSON::write(entry));
    }
}

Share live(Exchange& exchange) {
    auto share = found(exchange, exchange.parameter("id"));
    if (share.revokedAt)
        throw Refusal::notFound("the share was revoked");
    return share;
}

void requireEntity(Exchange& exchange, const CreateShareRequest& request) {
    const Tree tree(exchange.state, exchange.database, exchange.session);
    if (request.entityType == "file")
        static_cast<void>(tree.file(request.entityId));
    else if (request.entityType == "folder")
        static_cast<void>(tree.folder(request.entityId));
    else
        throw Refusal::badRequest("files and folders can be shared");
}

Reply create(Exchange& exchange) {
    const auto request = exchange.body<CreateShareRequest>();
    requireEntity(exchange, request);
    const auto id = newUUID();
    exchange.database.run(
        "INSERT INTO shares (id, user_id, token, entity_type, entity_id, password_salt, expires_at, "
        "created_at) VALUES (?,?,?,?,?,?,?,?)",
        id, exchange.session.userId, newSecret(), request.entityType, request.entityId, request.passwordSalt,
        request.expiresAt, exchange.state.now());
    upsert(exchange, id, request.entries);
    return answer(ShareEnvelope{recorded(exchange, id, "create")});
}

Reply list(Exchange& exchange) {
    SharesResponse response;
    for (const auto& row :
         exchange.database.query(selectShares(" AND s.revoked_at IS NULL"), exchange.session.userId))
        response.shares.push_back(shareOf(row));
    return answer(response);
}

Reply get(Exchange& exchange) {
    ShareDetail detail;
    detail.share = found(exchange, exchange.parameter("id"));
    for (const auto& row : exchange.database.query(
             "SELECT entry FROM share_entries WHERE share_id = ? ORDER BY entry_id", detail.share.id))
        detail.entries.push_back(KRJSON::read<ShareEntry>(Columns::text(row, "entry")));
    return answer(detail);
}

Reply updateEntries(Exchange& exchange) {
    const auto request = exchange.body<UpdateShareEntriesRequest>();
    const auto share = live(exchange);
    upsert(exchange, share.id, request.upsert);
    for (const auto& entry : request.remove)
        exchange.database.run("DELETE FROM share_entries WHERE share_id = ? AND entry_id = ?", share.id,
                              entry);
    recorded(exchange, share.id, "update");
    return noContent();
}

Reply update(Exchange& exchange) {
    const auto request = exchange.body<UpdateShareRequest>();
    const auto share = live(exchange);
    exchange.database.run("UPDATE shares SET expires_at = ? WHERE id = ?", request.expiresAt, share.id);
    return answer(ShareEnvelope{recorded(exchange, share.id, "update")});
}

Reply revoke(Exchange& exchange) {
    const auto share = live(exchange);
    exchange.database.run("UPDATE shares SET revoked_at = ? WHERE id = ?", exchange.state.now(), share.id);
    recorded(exchange, share.id, "delete");
    return noContent();
}

} // namespace

void addShareRoutes(Router& router) {
    using enum Router::Access;
    router.add("POST", "/v1/shares", device, create);
    router.add("GET", "/v1/shares", device, list);
    router.add("GET", "/v1/shares/{id}", device, get);
    router.add("PUT", "/v1/shares/{id}/entries", device, updateEntries);
    router.add("PATCH", "/v1/shares/{id}", device, update);
    router.add("DELETE", "/v1/shares/{id}", device, revoke);
}

} // namespace Korvane
