#include "KRCrypto/Derivation.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneService/Columns.hpp"
#include "KorvaneService/Sessions.hpp"
#include "KorvaneService/Tree.hpp"
#include "KorvaneService/routes/Credentials.hpp"
#include "KorvaneService/routes/Routes.hpp"

namespace Korvane {

namespace {

template <class Enum>
std::string nameOf(Enum value) {
    return boost::describe::enum_to_string(value, "");
}

// An address without an account gets a salt too, always the same one, so that asking does not tell which
// addresses have accounts.
Reply authParams(Exchange& exchange) {
    const auto email = Credentials::normalisedEmail(exchange.query("email").value_or(""));
    const auto& settings = exchange.state.settings();
    AuthParams params;
    if (const auto account = Credentials::account(exchange, email)) {
        params.kdfSalt = Columns::bytes(*account, "kdf_salt");
    } else {
        const auto made = KRCrypto::hmacSHA256(exchange.state.key("absent-salt"), KRCrypto::asBytes(email));
        params.kdfSalt.assign(made.begin(), made.begin() + KRCrypto::saltSize);
    }
    params.argon2 = settings.argon2;
    params.signupMode = nameOf(settings.signupMode);
    params.signupAvailable = settings.signupMode != SignUpAvailability::Mode::closed;
    return answer(params);
}

void requireInvitation(const ServiceSettings& settings, const SignupRequest& request) {
    using Mode = SignUpAvailability::Mode;
    if (settings.signupMode == Mode::closed)
        throw Refusal::forbidden("sign-up is closed");
    if (settings.signupMode == Mode::invite && request.inviteCode != settings.inviteCode)
        throw Refusal::forbidden("the invitation code is not valid");
}

AuthResponse signedIn(Exchange& exchange, const Session& session) {
    AuthResponse response;
    response.user = Sessions::user(exchange.database, session.userId);
    response.device = Sessions::device(exchange.database, session, session.deviceId);
    const auto tokens = Sessions::issue(exchange.state, exchange.database, session);
    response.accessToken = tokens.accessToken;
    response.refreshToken = tokens.refreshToken;
    response.wrappedMasterKey =
        exchange.database.query("SELECT wrapped_master_key FROM users WHERE id = ?", session.userId)
            .at(0)
            .data("wrapped_master_key");
    return response;
}

Reply signup(Exchange& exchange) {
    const auto request = exchange.body<SignupRequest>();
    const auto& settings = exchange.state.settings();
    requireInvitation(settings, request);
    const auto email = Credentials::normalisedEmail(request.email);
    Credentials::requireKeys({&request.authKey, &request.recoveryAuthKey});
    Credentials::requireWrappedKey(request.wrappedMasterKey);
    Credentials::requireWrappedKey(request.wrappedMasterKeyRecovery);
    if (request.kdfSalt.size() != KRCrypto::saltSize)
        throw Refusal::badRequest("a salt has 16 bytes");
    if (Credentials::account(exchange, email))
        throw Refusal::conflict("email_taken", "an account with this e-mail address exists already");

    const auto userId = newUUID();
    const auto rootId = newUUID();
    exchange.database.run(
        "INSERT INTO users (id, email, root_folder_id, quota_bytes, created_at, kdf_salt, auth_hash, "
        "recovery_hash, wrapped_master_key, wrapped_master_key_recovery) "
        "VALUES (?,?,?,?,?,?,?,?,?,?)",
        userId, email, rootId, settings.quotaBytes, exchange.state.now(), request.kdfSalt,
        Credentials::hashOf(request.authKey), Credentials::hashOf(request.recoveryAuthKey),
        request.wrappedMasterKey, request.wrappedMasterKeyRecovery);
    const auto session = Sessions::signIn(exchange.state, exchange.database, userId, request.deviceName,
                                          nameOf(request.platform), std::nullopt);
    Tree(exchange.state, exchange.database, session).createRoot(rootId);
    return answer(signedIn(exchange, session));
}

Reply login(Exchange& exchange) {
    const auto request = exchange.body<LoginRequest>();
    const auto email = Credentials::normalisedEmail(request.email);
    Credentials::countAttempt(exchange, email);
    const auto account = Credentials::account(exchange, email);
    if (!account || !Credentials::matches(request.authKey, Columns::bytes(*account, "auth_hash")))
        throw Refusal::wrongCredentials("wrong e-mail address or password");
    return answer(
        signedIn(exchange, Sessions::signIn(exchange.state, exchange.database, Columns::text(*account, "id"),
                                            request.deviceName, nameOf(request.platform), request.deviceId)));
}

// A token used twice was stolen from one of its two users; the revocation must be kept, so it is an answer
// here and not a refusal, which would undo it.
Reply refresh(Exchange& exchange) {
    const auto request = exchange.body<RefreshRequest>();
    const auto rotation = Sessions::rotate(exchange.state, exchange.database, request.refreshToken);
    if (rotation.tokens)
        return answer(*rotation.tokens);
    Reply reply;
    reply.status = 401;
    reply.body = Refusal::deviceRevoked().envelope();
    return reply;
}

Reply logout(Exchange& exchange) {
    Sessions::revoke(exchange.state, exchange.database, exchange.session);
    return noContent();
}

Reply me(Exchange& exchange) {
    return answer(
        MeResponse{Sessions::user(exchange.database, exchange.session.userId),
                   Sessions::device(exchange.database, exchange.session, exchange.session.deviceId)});
}

void setPassword(Exchange& exchange, const std::string& userId, const KRCrypto::SecretBytes& authKey,
                 const KRCrypto::Bytes& salt, const KRCrypto::Bytes& wrappedMasterKey) {
    Credentials::requireKeys({&authKey});
    Credentials::requireWrappedKey(wrappedMasterKey);
    if (salt.size() != KRCrypto::saltSize)
        throw Refusal::badRequest("a salt has 16 bytes");
    exchange.database.run("UPDATE users SET auth_hash = ?, kdf_salt = ?, wrapped_master_key = ? WHERE id = ?",
                          Credentials::hashOf(authKey), salt, wrappedMasterKey, userId);
}

void recordAccount(Exchange& exchange, const Session& session) {
    const ChangeFeed feed(exchange.state, exchange.database, session);
    feed.record("account", session.userId, "update", feed.nextSeq(), std::nullopt);
}

Reply changePassword(Exchange& exchange) {
    const auto request = exchange.body<ChangePasswordRequest>();
    Credentials::require(exchange, request.currentAuthKey);
    setPassword(exchange, exchange.session.userId, request.newAuthKey, request.newKdfSalt,
                request.newWrappedMasterKey);
    recordAccount(exchange, exchange.session);
    return noContent();
}

Reply deleteAccount(Exchange& exchange) {
    Credentials::require(exchange, exchange.body<DeleteAccountRequest>().authKey);
    const auto& user = exchange.session.userId;
    const auto& blobs = exchange.state.blobs();
    for (const auto& row : exchange.database.query("SELECT folder FROM blobs WHERE user_id = ?", user))
        exchange.discarded.push_back(blobs.blobFolder(Columns::text(row, "folder")));
    for (const auto& row : exchange.database.query("SELECT id FROM uploads WHERE user_id = ?", user))
        exchange.discarded.push_back(blobs.uploadFolder(Columns::text(row, "id")));
    for (const auto& row : exchange.database.query("SELECT id FROM files WHERE user_id = ?", user))
        exchange.discarded.push_back(blobs.thumbnailFile(Columns::text(row, "id")));
    // Versions first: they keep blobs from being removed.
    exchange.database.run("DELETE FROM versions WHERE user_id = ?", user);
    exchange.database.run("DELETE FROM users WHERE id = ?", user);
    return noContent();
}

Reply usage(Exchange& exchange) {
    const auto row = exchange.database
                         .query(R"(
SELECT (SELECT COALESCE(SUM(encrypted_size), 0) FROM blobs WHERE user_id = ?1) AS used,
       (SELECT quota_bytes FROM users WHERE id = ?1) AS quota,
       (SELECT COUNT(*) FROM files WHERE user_id = ?1 AND deleted_at IS NULL) AS files,
       (SELECT COUNT(*) FROM folders WHERE user_id = ?1 AND deleted_at IS NULL AND parent_id IS NOT NULL) AS folders,
       (SELECT COALESCE(SUM(b.encrypted_size), 0) FROM files f
          JOIN versions v ON v.file_id = f.id AND v.version = f.version
          JOIN blobs b ON b.user_id = v.user_id AND b.blob_id = v.blob_id
         WHERE f.user_id = ?1 AND f.deleted_at IS NOT NULL) AS trash,
       (SELECT COALESCE(SUM(b.encrypted_size), 0) FROM files f
          JOIN versions v ON v.file_id = f.id AND v.version < f.version
          JOIN blobs b ON b.user_id = v.user_id AND b.blob_id = v.blob_id
         WHERE f.user_id = ?1) AS versions)",
                                exchange.session.userId)
                         .at(0);
    Usage usage;
    usage.usedBytes = Columns::integer(row, "used");
    usage.quotaBytes = Columns::integer(row, "quota");
    usage.fileCount = row.intValue("files");
    usage.folderCount = row.intValue("folders");
    usage.trashBytes = row.intValue("trash");
    usage.versionBytes = row.intValue("versions");
    return answer(usage);
}

// An address without an account is answered like one with: the box looks like any other and opens with no
// code.
Reply recoveryBegin(Exchange& exchange) {
    const auto email = Credentials::normalisedEmail(exchange.body<RecoveryBeginRequest>().email);
    Credentials::countAttempt(exchange, email);
    RecoveryBeginResponse response;
    if (const auto account = Credentials::account(exchange, email)) {
        response.kdfSalt = Columns::bytes(*account, "kdf_salt");
        response.wrappedMasterKeyRecovery = Columns::bytes(*account, "wrapped_master_key_recovery");
        return answer(response);
    }
    const auto salt = KRCrypto::hmacSHA256(exchange.state.key("absent-salt"), KRCrypto::asBytes(email));
    response.kdfSalt.assign(salt.begin(), salt.begin() + KRCrypto::saltSize);
    const auto box =
        KRCrypto::hkdf(exchange.state.key("absent-box"), email, KRCrypto::keySize + KRCrypto::sealedOverhead);
    response.wrappedMasterKeyRecovery.assign(box.view().begin(), box.view().end());
    response.wrappedMasterKeyRecovery[0] = KRCrypto::keyVersion;
    return answer(response);
}

Reply recoveryComplete(Exchange& exchange) {
    const auto request = exchange.body<RecoveryCompleteRequest>();
    const auto email = Credentials::normalisedEmail(request.email);
    Credentials::countAttempt(exchange, email);
    const auto account = Credentials::account(exchange, email);
    if (!account || !Credentials::matches(request.recoveryAuthKey, Columns::bytes(*account, "recovery_hash")))
        throw Refusal::wrongCredentials("wrong recovery code");
    const auto userId = Columns::text(*account, "id");
    setPassword(exchange, userId, request.newAuthKey, request.newKdfSalt, request.newWrappedMasterKey);
    const auto session = Sessions::signIn(exchange.state, exchange.database, userId, request.deviceName,
                                          nameOf(request.platform), std::nullopt);
    recordAccount(exchange, session);
    return answer(signedIn(exchange, session));
}

Reply rotateRecoveryKey(Exchange& exchange) {
    const auto request = exchange.body<RotateRecoveryRequest>();
    Credentials::require(exchange, request.authKey);
    Credentials::requireKeys({&request.newRecoveryAuthKey});
    Credentials::requireWrappedKey(request.newWrappedMasterKeyRecovery);
    exchange.database.run("UPDATE users SET recovery_hash = ?, wrapped_master_key_recovery = ? WHERE id = ?",
                          Credentials::hashOf(request.newRecoveryAuthKey),
                          request.newWrappedMasterKeyRecovery, exchange.session.userId);
    return noContent();
}

Reply recoveryWrappedKey(Exchange& exchange) {
    const auto rows = exchange.database.query("SELECT wrapped_master_key_recovery FROM users WHERE id = ?",
                                              exchange.session.userId);
    return answer(RecoveryWrappedKeyResponse{Columns::bytes(rows.at(0), "wrapped_master_key_recovery")});
}

} // namespace

void addAccountRoutes(Router& router) {
    using enum Router::Access;
    router.add("GET", "/v1/auth/params", open, authParams);
    router.add("POST", "/v1/auth/signup", open, signup);
    router.add("POST", "/v1/auth/login", open, login);
    router.add("POST", "/v1/auth/refresh", open, refresh);
    router.add("POST", "/v1/auth/logout", device, logout);
    router.add("GET", "/v1/auth/me", device, me);
    router.add("POST", "/v1/account/password", device, changePassword);
    router.add("POST", "/v1/account/delete", device, deleteAccount);
    router.add("GET", "/v1/account/usage", device, usage);
    router.add("POST", "/v1/auth/recovery/begin", open, recoveryBegin);
    router.add("POST", "/v1/auth/recovery/complete", open, recoveryComplete);
    router.add("POST", "/v1/account/recovery-key", device, rotateRecoveryKey);
    router.add("GET", "/v1/account/recovery-wrapped-key", device, recoveryWrappedKey);
}

} // namespace Korvane
