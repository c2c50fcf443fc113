#include "KRCrypto/Random.hpp"
#include "KRCrypto/Sha256.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KorvaneCore/api/records/Pairing.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneService/Columns.hpp"
#include "KorvaneService/Sessions.hpp"
#include "KorvaneService/routes/Credentials.hpp"
#include "KorvaneService/routes/Routes.hpp"

#include <fmt/format.h>

namespace Korvane {

namespace {

/// Eight decimal digits, to be typed from one screen into another.
std::string newCode() {
    std::uint32_t number = 0;
    for (const auto byte : KRCrypto::randomBytes(sizeof number))
        number = number << 8 | byte;
    return fmt::format("{:08}", number % 100'000'000);
}

KRCrypto::Bytes hashOf(std::string_view secret) {
    const auto digest = KRCrypto::sha256(KRCrypto::asBytes(secret));
    return {digest.begin(), digest.end()};
}

Reply start(Exchange& exchange) {
    const auto request = exchange.body<PairStartRequest>();
    if (request.devicePublicKey.size() != KRCrypto::keySize)
        throw Refusal::badRequest("a public key has 32 bytes");
    const auto now = exchange.state.now();
    const auto expires = now + exchange.state.settings().pairingLifetime;
    const auto id = newUUID();
    const auto secret = newSecret();
    const auto code = newCode();
    const bool bound = !exchange.session.userId.empty();
    exchange.database.run("DELETE FROM pairings WHERE expires_at <= ?", now);
    exchange.database.run("INSERT INTO pairings (id, code, poll_hash, user_id, device_id, device_name, "
                          "platform, device_public_key, "
                          "created_at, expires_at) VALUES (?,?,?,?,?,?,?,?,?,?)",
                          id, code, hashOf(secret),
                          bound ? std::optional(exchange.session.userId) : std::nullopt,
                          bound ? std::optional(exchange.session.deviceId) : std::nullopt, request.deviceName,
                          std::string(boost::describe::enum_to_string(request.platform, "")),
                          request.devicePublicKey, now, expires);
    return answer(PairStartResponse{id, code, std::string_view(secret), expires});
}

SQLRow live(Exchange& exchange, const std::string& id) {
    const auto rows = exchange.database.query("SELECT * FROM pairings WHERE id = ?", id);
    if (rows.empty())
        throw Refusal::notFound("no such pairing");
    if (rows[0].date("expires_at") <= exchange.state.now())
        throw Refusal::expired("the pairing has expired");
    return rows[0];
}

// An approving device announces its key, so that both users can compare digits, and sends the sealed key
// afterwards, or no key at all, which ends the pairing; "approved_by" is whose device it is from its first
// word on. The sealed key and the tokens are given once; whoever asks again finds the pairing collected.
Reply collect(Exchange& exchange) {
    const auto row = live(exchange, exchange.parameter("pairingId"));
    const auto secret = exchange.request.headers["X-Pairing-Secret"];
    if (hashOf({secret.data(), secret.size()}) != row.data("poll_hash") ||
        exchange.query("code") != row.string("code"))
        throw Refusal::forbidden("the pairing belongs to another device");
    PairPollResponse response;
    response.approverPublicKey = row.data("approver_public_key");
    response.encryptedMasterKey = row.data("encrypted_master_key");
    if (!response.encryptedMasterKey) {
        response.status = response.approverPublicKey ? "announced" : "pending";
        return answer(response);
    }
    if (row.boolValue("collected"))
        throw Refusal::expired("the pairing was used");
    exchange.database.run("UPDATE pairings SET collected = 1 WHERE id = ?", Columns::text(row, "id"));
    response.status = "approved";
    const auto approver = Columns::text(row, "approved_by");
    response.user = Sessions::user(exchange.database, approver);
    if (const auto bound = row.string("device_id")) {
        response.device = Sessions::device(exchange.database, {approver, *bound}, *bound);
        return answer(response);
    }
    const auto session =
        Sessions::signIn(exchange.state, exchange.database, approver, Columns::text(row, "device_name"),
                         Columns::text(row, "platform"), {});
    const auto tokens = Sessions::issue(exchange.state, exchange.database, session);
    response.accessToken = tokens.accessToken;
    response.refreshToken = tokens.refreshToken;
    response.device = Sessions::device(exchange.database, session, session.deviceId);
    return answer(response);
}

Reply poll(Exchange& exchange) {
    return exchange.database.transaction([&](SQLiteDatabase&) { return collect(exchange); });
}

PendingPairing pendingPairing(const SQLRow& row) {
    PendingPairing pairing;
    pairing.pairingId = Columns::text(row, "id");
    pairing.code = Columns::text(row, "code");
    pairing.deviceName = Columns::text(row, "device_name");
    pairing.platform = Columns::text(row, "platform");
    pairing.devicePublicKey = Columns::bytes(row, "device_public_key");
    pairing.createdAt = row.date("created_at");
    pairing.bound = row.string("user_id").has_value();
    return pairing;
}

// The user's own signed-in devices are listed; a signed-out one is found by the code on its screen alone.
Reply pending(Exchange& exchange) {
    const auto code = exchange.query("code");
    if (code)
        Credentials::countAttempt(exchange, "pairing:" + exchange.session.userId);
    PendingPairingsResponse response;
    for (const auto& row : exchange.database.query(
             "SELECT * FROM pairings WHERE encrypted_master_key IS NULL AND expires_at > ?1 AND "
             "(user_id = ?2 OR (user_id IS NULL AND code = ?3)) AND code = COALESCE(?3, "
             "code) ORDER BY created_at",
             exchange.state.now(), exchange.session.userId, code))
        response.pairings.push_back(pendingPairing(row));
    return answer(response);
}

Reply approve(Exchange& exchange) {
    const auto request = exchange.body<PairApproveRequest>();
    Credentials::countAttempt(exchange, "pairing:" + exchange.session.userId);
    const bool announces = request.encryptedMasterKey.empty();
    const bool withdraws = announces && request.approverPublicKey.empty();
    if (!announces)
        Credentials::requireWrappedKey(request.encryptedMasterKey);
    if (!withdraws && request.approverPublicKey.size() != KRCrypto::keySize)
        throw Refusal::badRequest("a public key has 32 bytes");
    const auto row = live(exchange, request.pairingId);
    if (row.string("code") != request.code ||
        row.string("user_id").value_or(exchange.session.userId) != exchange.session.userId)
        throw Refusal::forbidden("the code is not this pairing's");
    if (row.data("encrypted_master_key"))
        throw Refusal::expired("the pairing was used");
    if (withdraws && row.string("approved_by") == exchange.session.userId) {
        exchange.database.run("DELETE FROM pairings WHERE id = ?", request.pairingId);
        return noContent();
    }
    if (row.string("approved_by").value_or(exchange.session.userId) != exchange.session.userId ||
        row.data("approver_public_key").value_or(request.approverPublicKey) != request.approverPublicKey)
        throw Refusal::conflict("pairing_answered", "another device has answered this pairing");
    exchange.database.run(
        "UPDATE pairings SET approver_public_key = ?, encrypted_master_key = ?, approved_by = ? "
        "WHERE id = ?",
        request.approverPublicKey, announces ? std::nullopt : std::optional(request.encryptedMasterKey),
        exchange.session.userId, request.pairingId);
    return noContent();
}

} // namespace

void addPairingRoutes(Router& router) {
    using enum Router::Access;
    router.add("POST", "/v1/auth/pair/start", either, start);
    router.add("GET", "/v1/auth/pair/{pairingId}", open, poll);
    router.add("GET", "/v1/auth/pair/pending", device, pending);
    router.add("POST", "/v1/auth/pair/approve", device, approve);
}

} // namespace Korvane
