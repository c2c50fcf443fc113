#include "KorvaneCore/api/APIClientCall.hpp"

namespace Korvane {

using Call = APICall;

// Every operation takes its arguments by value, whether or not it is a coroutine itself.
// NOLINTBEGIN(performance-unnecessary-value-param)

asio::awaitable<AuthParams> APIClient::authParams(std::string email) {
    return call<AuthParams>({.method = "GET",
                             .path = "/auth/params",
                             .query = {{"email", std::move(email)}},
                             .authenticated = false});
}

asio::awaitable<AuthResponse> APIClient::signup(SignupRequest request) {
    return call<AuthResponse>({.method = "POST",
                               .path = "/auth/signup",
                               .body = Call::json(request),
                               .authenticated = false,
                               .returnsErrorInfo = true});
}

asio::awaitable<AuthResponse> APIClient::login(LoginRequest request) {
    return call<AuthResponse>(
        {.method = "POST", .path = "/auth/login", .body = Call::json(request), .authenticated = false});
}

asio::awaitable<void> APIClient::logout() {
    return call<void>({.method = "POST", .path = "/auth/logout"});
}

asio::awaitable<MeResponse> APIClient::me() {
    return call<MeResponse>({.method = "GET", .path = "/auth/me"});
}

asio::awaitable<RecoveryBeginResponse> APIClient::recoveryBegin(std::string email) {
    return call<RecoveryBeginResponse>({.method = "POST",
                                        .path = "/auth/recovery/begin",
                                        .body = Call::json(RecoveryBeginRequest{std::move(email)}),
                                        .authenticated = false});
}

asio::awaitable<AuthResponse> APIClient::recoveryComplete(RecoveryCompleteRequest request) {
    return call<AuthResponse>({.method = "POST",
                               .path = "/auth/recovery/complete",
                               .body = Call::json(request),
                               .authenticated = false});
}

asio::awaitable<void> APIClient::changePassword(ChangePasswordRequest request) {
    return call<void>({.method = "POST",
                       .path = "/account/password",
                       .body = Call::json(request),
                       .credentialCheck = true});
}

asio::awaitable<void> APIClient::deleteAccount(DeleteAccountRequest proof) {
    return call<void>({.method = "POST",
                       .path = "/account/delete",
                       .body = Call::json(proof),
                       .returnsErrorInfo = true,
                       .credentialCheck = true});
}

asio::awaitable<void> APIClient::rotateRecoveryKey(RotateRecoveryRequest request) {
    return call<void>({.method = "POST",
                       .path = "/account/recovery-key",
                       .body = Call::json(request),
                       .returnsErrorInfo = true,
                       .credentialCheck = true});
}

asio::awaitable<Usage> APIClient::usage() {
    return call<Usage>({.method = "GET", .path = "/account/usage"});
}

asio::awaitable<SSOConfig> APIClient::ssoConfig() {
    return call<SSOConfig>({.method = "GET", .path = "/auth/sso/config", .authenticated = false});
}

asio::awaitable<AuthResponse> APIClient::ssoLogin(SSOLoginRequest request) {
    return call<AuthResponse>({.method = "POST",
                               .path = "/auth/sso/login",
                               .body = Call::json(request),
                               .authenticated = false,
                               .returnsErrorInfo = true});
}

asio::awaitable<AuthResponse> APIClient::ssoSignup(SSOSignupRequest request) {
    return call<AuthResponse>({.method = "POST",
                               .path = "/auth/sso/signup",
                               .body = Call::json(request),
                               .authenticated = false,
                               .returnsErrorInfo = true});
}

asio::awaitable<IdentitiesResponse> APIClient::linkIdentity(LinkIdentityRequest request) {
    return call<IdentitiesResponse>({.method = "POST",
                                     .path = "/account/identities",
                                     .body = Call::json(request),
                                     .returnsErrorInfo = true,
                                     .credentialCheck = true});
}

asio::awaitable<IdentitiesResponse> APIClient::unlinkIdentity(SSOProvider provider,
                                                              DeleteAccountRequest proof) {
    const auto* name = boost::describe::enum_to_string(provider, "");
    return call<IdentitiesResponse>({.method = "DELETE",
                                     .path = "/account/identities" + Call::segment(name),
                                     .body = Call::json(proof),
                                     .returnsErrorInfo = true,
                                     .credentialCheck = true});
}

asio::awaitable<RecoveryWrappedKeyResponse> APIClient::recoveryWrappedKey() {
    return call<RecoveryWrappedKeyResponse>({.method = "GET", .path = "/account/recovery-wrapped-key"});
}

// NOLINTEND(performance-unnecessary-value-param)

} // namespace Korvane
