#include "KorvaneCore/api/APIClientCall.hpp"

namespace Korvane {

using Call = APICall;

// Every operation takes its arguments by value, whether or not it is a coroutine itself.
// NOLINTBEGIN(performance-unnecessary-value-param)

asio::awaitable<PairStartResponse> APIClient::pairStart(PairStartRequest request) {
    return call<PairStartResponse>(
        {.method = "POST", .path = "/auth/pair/start", .body = Call::json(request), .authenticated = false});
}

asio::awaitable<PairStartResponse> APIClient::pairStartBound(PairStartRequest request) {
    return call<PairStartResponse>(
        {.method = "POST", .path = "/auth/pair/start", .body = Call::json(request)});
}

asio::awaitable<PairPollResponse> APIClient::pairPoll(std::string pairingId, std::string code,
                                                      SecretText pollSecret) {
    return call<PairPollResponse>(
        {.method = "GET",
         .path = "/auth/pair" + Call::segment(pairingId),
         .query = {{"code", std::move(code)}},
         .headers = {{"X-Pairing-Secret", KRCrypto::SecretBytes::copyOf(pollSecret.text())}},
         .authenticated = false});
}

asio::awaitable<PendingPairingsResponse> APIClient::pairPending(std::optional<std::string> code) {
    Call pending{.method = "GET", .path = "/auth/pair/pending"};
    if (code)
        pending.query = {{"code", *std::move(code)}};
    return call<PendingPairingsResponse>(std::move(pending));
}

asio::awaitable<void> APIClient::pairApprove(PairApproveRequest request) {
    return call<void>({.method = "POST", .path = "/auth/pair/approve", .body = Call::json(request)});
}

asio::awaitable<std::vector<Device>> APIClient::devices() {
    auto answer = co_await call<DevicesResponse>({.method = "GET", .path = "/devices"});
    co_return std::move(answer.devices);
}

asio::awaitable<void> APIClient::revokeDevice(std::string id) {
    return call<void>({.method = "DELETE", .path = "/devices" + Call::segment(id)});
}

asio::awaitable<Device> APIClient::updateDevice(std::string id, std::optional<std::string> name,
                                                std::optional<std::string> pushToken) {
    const DevicePatchRequest patch{std::move(name), std::move(pushToken)};
    auto answer = co_await call<DeviceEnvelope>(
        {.method = "PATCH", .path = "/devices" + Call::segment(id), .body = Call::json(patch)});
    co_return std::move(answer.device);
}

// NOLINTEND(performance-unnecessary-value-param)

} // namespace Korvane
