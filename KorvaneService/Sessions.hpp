#pragma once

#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/api/records/Account.hpp"
#include "KorvaneCore/api/records/TokenPair.hpp"
#include "KorvaneService/ServiceState.hpp"

#include <optional>
#include <string>
#include <string_view>

/// Signed-in devices and their tokens. An access token is a JWT (RFC 7519, HS256) with the claims "sub"
/// (user), "dev" (device), "iat" and "exp". A refresh token is random, used once, and known here by its hash
/// only.
namespace Korvane::Sessions {

/// The session of a "Bearer" header value. Throws Refusal.
[[nodiscard]] Session authenticate(ServiceState& state, std::string_view authorization);

/// A new pair for the device.
[[nodiscard]] TokenPair issue(ServiceState& state, SQLiteDatabase& database, const Session& session);

/// What became of a refresh token.
struct Rotation {
    std::optional<TokenPair> tokens; ///< none when it was used before, and the device is revoked now
};

/// Trades a refresh token for a new pair; a token used a second time revokes its device. Throws Refusal for
/// one that is not known or whose device is revoked.
[[nodiscard]] Rotation rotate(ServiceState& state, SQLiteDatabase& database, const SecretText& refreshToken);

/// Signs the device out for good. No-op for one that is revoked.
void revoke(ServiceState& state, SQLiteDatabase& database, const Session& session);

/// Signs a device in: the user's own `deviceId` again, or a new one.
[[nodiscard]] Session signIn(ServiceState& state, SQLiteDatabase& database, const std::string& userId,
                             const std::string& deviceName, const std::string& platform,
                             const std::optional<std::string>& deviceId);

[[nodiscard]] User user(SQLiteDatabase& database, const std::string& userId);

/// Throws Refusal when the user has no such device.
[[nodiscard]] Device device(SQLiteDatabase& database, const Session& session, const std::string& deviceId);

/// Records a change of a device for the user's change feed.
void recordDevice(ServiceState& state, SQLiteDatabase& database, const Session& session,
                  const std::string& deviceId, std::string_view op);

} // namespace Korvane::Sessions
