#include "KorvaneService/Sessions.hpp"

#include "KRCrypto/B64.hpp"
#include "KRCrypto/Derivation.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Sha256.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneService/ChangeFeed.hpp"
#include "KorvaneService/Columns.hpp"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/split.hpp>

namespace Korvane::Sessions {

namespace {

struct Claims {
    std::string sub;
    std::string dev;
    std::int64_t iat = 0;
    std::int64_t exp = 0;
};
BOOST_DESCRIBE_STRUCT(Claims, (), (sub, dev, iat, exp))

struct Header {
    std::string alg = "HS256";
    std::string typ = "JWT";
};
BOOST_DESCRIBE_STRUCT(Header, (), (alg, typ))

std::string encoded(std::string_view text) {
    return KRCrypto::B64::encodeURL(KRCrypto::asBytes(text));
}

std::string signatureOf(const ServiceState& state, std::string_view text) {
    return KRCrypto::B64::encodeURL(KRCrypto::hmacSHA256(state.key("access-token"), KRCrypto::asBytes(text)));
}

std::int64_t secondsOf(Clock::Time time) {
    return std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
}

KRCrypto::Bytes hashOf(const SecretText& token) {
    const auto digest = KRCrypto::sha256(KRCrypto::asBytes(token.text()));
    return {digest.begin(), digest.end()};
}

Claims verified(const ServiceState& state, std::string_view token) {
    const auto end = token.rfind('.');
    const auto start = token.find('.');
    if (end == std::string_view::npos || start == end)
        throw Refusal::invalidToken();
    const auto expected = SecretText(signatureOf(state, token.substr(0, end)));
    if (expected != SecretText(token.substr(end + 1)))
        throw Refusal::invalidToken();
    const auto payload = KRCrypto::B64::decodeURL(token.substr(start + 1, end - start - 1));
    return KRJSON::read<Claims>(KRCrypto::asText(payload));
}

bool isRevoked(SQLiteDatabase& database, const Session& session) {
    const auto rows = database.query("SELECT revoked_at FROM devices WHERE id = ? AND user_id = ?",
                                     session.deviceId, session.userId);
    return rows.empty() || rows[0].date("revoked_at");
}

Device deviceOf(const SQLRow& row, const std::string& current) {
    Device device;
    device.id = Columns::text(row, "id");
    device.name = Columns::text(row, "name");
    device.platform = Columns::text(row, "platform");
    device.createdAt = row.date("created_at");
    device.lastSeenAt = row.date("last_seen_at");
    device.revokedAt = row.date("revoked_at");
    device.current = device.id == current;
    return device;
}

} // namespace

Session authenticate(ServiceState& state, std::string_view authorization) {
    static constexpr std::string_view bearer = "Bearer ";
    if (!boost::istarts_with(authorization, bearer))
        throw Refusal::authenticationRequired();
    const auto claims = verified(state, authorization.substr(bearer.size()));
    if (claims.exp <= secondsOf(state.now()))
        throw Refusal::tokenExpired();
    Session session{claims.sub, claims.dev};
    if (isRevoked(state.database(), session))
        throw Refusal::deviceRevoked();
    return session;
}

TokenPair issue(ServiceState& state, SQLiteDatabase& database, const Session& session) {
    const auto now = state.now();
    const Claims claims{session.userId, session.deviceId, secondsOf(now),
                        secondsOf(now + state.settings().accessTokenLifetime)};
    const auto text = encoded(KRJSON::write(Header())) + '.' + encoded(KRJSON::write(claims));
    const auto accessToken = text + '.' + signatureOf(state, text);
    const auto refreshToken = newSecret();
    TokenPair pair{std::string_view(accessToken), std::string_view(refreshToken)};
    database.run("INSERT INTO refresh_tokens (hash, device_id) VALUES (?, ?)", hashOf(pair.refreshToken),
                 session.deviceId);
    return pair;
}

Rotation rotate(ServiceState& state, SQLiteDatabase& database, const SecretText& refreshToken) {
    const auto hash = hashOf(refreshToken);
    const auto rows = database.query("SELECT t.used_at, d.id, d.user_id, d.revoked_at FROM refresh_tokens t "
                                     "JOIN devices d ON d.id = t.device_id WHERE t.hash = ?",
                                     hash);
    if (rows.empty())
        throw Refusal::wrongCredentials("invalid refresh token");
    const Session session{Columns::text(rows[0], "user_id"), Columns::text(rows[0], "id")};
    if (rows[0].date("revoked_at"))
        throw Refusal::deviceRevoked();
    if (rows[0].date("used_at")) {
        revoke(state, database, session);
        return {};
    }
    const auto now = state.now();
    database.run("UPDATE refresh_tokens SET used_at = ? WHERE hash = ?", now, hash);
    database.run("UPDATE devices SET last_seen_at = ? WHERE id = ?", now, session.deviceId);
    return {issue(state, database, session)};
}

void revoke(ServiceState& state, SQLiteDatabase& database, const Session& session) {
    if (database.run("UPDATE devices SET revoked_at = ? WHERE id = ? AND user_id = ? AND revoked_at IS NULL",
                     state.now(), session.deviceId, session.userId) > 0)
        recordDevice(state, database, session, session.deviceId, "delete");
}

Session signIn(ServiceState& state, SQLiteDatabase& database, const std::string& userId,
               const std::string& deviceName, const std::string& platform,
               const std::optional<std::string>& deviceId) {
    const auto now = state.now();
    if (deviceId &&
        database.run("UPDATE devices SET name = ?, last_seen_at = ? WHERE id = ? AND user_id = ? AND "
                     "revoked_at IS NULL",
                     deviceName, now, *deviceId, userId) > 0)
        return {userId, *deviceId};
    Session session{userId, newUUID()};
    database.run(
        "INSERT INTO devices (id, user_id, name, platform, created_at, last_seen_at) VALUES (?,?,?,?,?,?)",
        session.deviceId, userId, deviceName, platform, now, now);
    recordDevice(state, database, session, session.deviceId, "create");
    return session;
}

User user(SQLiteDatabase& database, const std::string& userId) {
    const auto rows = database.query("SELECT * FROM users WHERE id = ?", userId);
    if (rows.empty())
        throw Refusal::authenticationRequired();
    User user;
    user.id = userId;
    user.email = Columns::text(rows[0], "email");
    user.rootFolderId = Columns::text(rows[0], "root_folder_id");
    user.quotaBytes = rows[0].intValue("quota_bytes");
    user.createdAt = rows[0].date("created_at");
    user.hasPassword = true;
    user.identities.emplace();
    return user;
}

Device device(SQLiteDatabase& database, const Session& session, const std::string& deviceId) {
    const auto rows =
        database.query("SELECT * FROM devices WHERE id = ? AND user_id = ?", deviceId, session.userId);
    if (rows.empty())
        throw Refusal::notFound("no such device");
    return deviceOf(rows[0], session.deviceId);
}

void recordDevice(ServiceState& state, SQLiteDatabase& database, const Session& session,
                  const std::string& deviceId, std::string_view op) {
    auto entity = device(database, session, deviceId);
    entity.current.reset();
    const ChangeFeed feed(state, database, session);
    feed.record("device", deviceId, op, feed.nextSeq(), KRJSON::write(entity));
}

} // namespace Korvane::Sessions
