#include "KorvaneService/Service.hpp"

#include "KRCrypto/Sizes.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneService/Sessions.hpp"
#include "KorvaneService/StorageURL.hpp"
#include "KorvaneService/routes/Routes.hpp"

#include <utility>

namespace Korvane {

namespace {

constexpr std::uint64_t largestAPIBody = std::uint64_t{8} << 20;

Router allRoutes() {
    Router router;
    for (const auto add : {addAccountRoutes, addSingleSignOnRoutes, addPairingRoutes, addDeviceRoutes,
                           addFolderRoutes, addFileRoutes, addTrashRoutes, addUploadRoutes, addChangeRoutes,
                           addShareRoutes, addPublicShareRoutes, addStorageRoutes})
        add(router);
    return router;
}

std::string authorizationOf(const Request& request) {
    return std::string(request.headers[boost::beast::http::field::authorization]);
}

/// What is left behind takes room and nothing else, so it is worth a line in the log only.
void discard(const std::vector<std::filesystem::path>& files) {
    for (const auto& file : files) {
        std::error_code error;
        std::filesystem::remove_all(file, error);
        if (error)
            Log::warning("service", "could not remove " + file.string() + ": " + error.message());
    }
}

} // namespace

Service::Service(ServiceSettings settings)
    : state_(std::move(settings)),
      router_(allRoutes()),
      server_(
          state_.settings().port,
          {.routeName = [this](const Request& request) { return router_.name(request.method, request.path); },
           .answer = [this](const Request& request) { return answer(request); },
           .bodyLimit =
               [this](std::string_view path) {
                   return path.starts_with("/storage/")
                              ? static_cast<std::uint64_t>(state_.settings().chunkSize) + KRCrypto::gcmTagSize
                              : largestAPIBody;
               },
           .latency = state_.settings().latency,
           .now = [this] { return state_.settings().clock->now(); }},
          faults_) {
    state_.setBaseURL("http://127.0.0.1:" + std::to_string(server_.port()));
    server_.start();
}

Reply Service::answer(const Request& request) {
    const auto match = router_.find(request.method, request.path);
    Exchange exchange{request, state_, state_.database(), match.parameters, {}, {}};
    const auto access = match.route->access;
    const auto authorization = authorizationOf(request);
    if (access == Router::Access::device || (access == Router::Access::either && !authorization.empty()))
        exchange.session = Sessions::authenticate(state_, authorization);
    if (access == Router::Access::signedURL)
        StorageURL::check(state_, request);
    if (const auto limit = state_.settings().requestsPerMinute; limit && !exchange.session.deviceId.empty())
        state_.rateLimiter().count("device:" + exchange.session.deviceId, *limit);
    if (request.method == "GET" || access == Router::Access::signedURL)
        return match.route->handler(exchange);
    auto reply =
        state_.database().transaction([&](SQLiteDatabase&) { return match.route->handler(exchange); });
    discard(exchange.discarded);
    return reply;
}

} // namespace Korvane
