#include "KorvaneCore/api/records/SingleSignOn.hpp"
#include "KorvaneService/routes/Routes.hpp"

namespace Korvane {

namespace {

// No identity provider vouches for users of a service on this computer, so none is offered.
Reply config(Exchange&) {
    return answer(SSOConfig{});
}

template <class Body>
Reply refuse(Exchange& exchange) {
    [[maybe_unused]] const auto request = exchange.body<Body>();
    throw Refusal::forbidden("single sign-on is not set up on this service");
}

Reply unlink(Exchange& exchange) {
    throw Refusal::notFound("no identity of " + exchange.parameter("provider") + " is linked");
}

} // namespace

void addSingleSignOnRoutes(Router& router) {
    using enum Router::Access;
    router.add("GET", "/v1/auth/sso/config", open, config);
    router.add("POST", "/v1/auth/sso/login", open, refuse<SSOLoginRequest>);
    router.add("POST", "/v1/auth/sso/signup", open, refuse<SSOSignupRequest>);
    router.add("POST", "/v1/account/identities", device, refuse<LinkIdentityRequest>);
    router.add("DELETE", "/v1/account/identities/{provider}", device, unlink);
}

} // namespace Korvane
