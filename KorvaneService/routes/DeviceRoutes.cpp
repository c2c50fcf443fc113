#include "KorvaneService/Columns.hpp"
#include "KorvaneService/Sessions.hpp"
#include "KorvaneService/routes/Routes.hpp"

namespace Korvane {

namespace {

Reply devices(Exchange& exchange) {
    DevicesResponse response;
    for (const auto& row : exchange.database.query(
             "SELECT id FROM devices WHERE user_id = ? AND revoked_at IS NULL ORDER BY created_at, id",
             exchange.session.userId))
        response.devices.push_back(
            Sessions::device(exchange.database, exchange.session, Columns::text(row, "id")));
    return answer(response);
}

Reply revoke(Exchange& exchange) {
    const auto& id = exchange.parameter("id");
    [[maybe_unused]] const auto existing = Sessions::device(exchange.database, exchange.session, id);
    Sessions::revoke(exchange.state, exchange.database, {exchange.session.userId, id});
    return noContent();
}

Reply update(Exchange& exchange) {
    const auto request = exchange.body<DevicePatchRequest>();
    const auto& id = exchange.parameter("id");
    if (request.name && request.name->empty())
        throw Refusal::badRequest("a device has a name");
    exchange.database.run(
        "UPDATE devices SET name = COALESCE(?1, name), push_token = COALESCE(?2, push_token) "
        "WHERE id = ?3 AND user_id = ?4",
        request.name, request.pushToken, id, exchange.session.userId);
    Sessions::recordDevice(exchange.state, exchange.database, exchange.session, id, "update");
    return answer(DeviceEnvelope{Sessions::device(exchange.database, exchange.session, id)});
}

} // namespace

void addDeviceRoutes(Router& router) {
    using enum Router::Access;
    router.add("GET", "/v1/devices", device, devices);
    router.add("DELETE", "/v1/devices/{id}", device, revoke);
    router.add("PATCH", "/v1/devices/{id}", device, update);
}

} // namespace Korvane
