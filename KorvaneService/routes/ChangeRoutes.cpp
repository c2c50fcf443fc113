#include "KorvaneService/ChangeFeed.hpp"
#include "KorvaneService/routes/Paging.hpp"
#include "KorvaneService/routes/Routes.hpp"

namespace Korvane {

namespace {

Reply changes(Exchange& exchange) {
    Reply reply;
    reply.body = ChangeFeed(exchange.state, exchange.database, exchange.session)
                     .page(numberOf(exchange, "since", 0), limitOf(exchange));
    return reply;
}

} // namespace

void addChangeRoutes(Router& router) {
    router.add("GET", "/v1/changes", Router::Access::device, changes);
}

} // namespace Korvane
