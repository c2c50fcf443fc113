#include "KorvaneCore/api/APIClientCall.hpp"

namespace Korvane {

using Call = APICall;

// Every operation takes its arguments by value, whether or not it is a coroutine itself.
// NOLINTBEGIN(performance-unnecessary-value-param)

asio::awaitable<Share> APIClient::createShare(CreateShareRequest request) {
    auto answer =
        co_await call<ShareEnvelope>({.method = "POST", .path = "/shares", .body = Call::json(request)});
    co_return std::move(answer.share);
}

asio::awaitable<std::vector<Share>> APIClient::shares() {
    auto answer = co_await call<SharesResponse>(
        {.method = "GET", .path = "/shares", .maxAnswerSize = AnswerLimit::list});
    co_return std::move(answer.shares);
}

asio::awaitable<ShareDetail> APIClient::share(std::string id) {
    return call<ShareDetail>(
        {.method = "GET", .path = "/shares" + Call::segment(id), .maxAnswerSize = AnswerLimit::list});
}

asio::awaitable<void> APIClient::updateShareEntries(std::string id, std::vector<ShareEntry> upsert,
                                                    std::vector<std::string> remove) {
    const UpdateShareEntriesRequest request{std::move(upsert), std::move(remove)};
    return call<void>(
        {.method = "PUT", .path = "/shares" + Call::segment(id) + "/entries", .body = Call::json(request)});
}

asio::awaitable<Share> APIClient::updateShare(std::string id, std::optional<KRJSON::Date> expiresAt) {
    auto answer = co_await call<ShareEnvelope>({.method = "PATCH",
                                                .path = "/shares" + Call::segment(id),
                                                .body = Call::json(UpdateShareRequest{expiresAt})});
    co_return std::move(answer.share);
}

asio::awaitable<void> APIClient::revokeShare(std::string id) {
    return call<void>({.method = "DELETE", .path = "/shares" + Call::segment(id)});
}

asio::awaitable<PublicShare> APIClient::publicShare(std::string token) {
    return call<PublicShare>({.method = "GET",
                              .path = "/public/shares" + Call::segment(token),
                              .maxAnswerSize = AnswerLimit::list,
                              .authenticated = false,
                              .returnsErrorInfo = true});
}

asio::awaitable<DownloadInfo> APIClient::publicShareDownload(std::string token, std::string entryId) {
    return call<DownloadInfo>(
        {.method = "GET",
         .path = "/public/shares" + Call::segment(token) + "/entries" + Call::segment(entryId) + "/download",
         .authenticated = false,
         .returnsErrorInfo = true});
}

// NOLINTEND(performance-unnecessary-value-param)

} // namespace Korvane
