#include "KorvaneCore/api/APIClient.hpp"

#include "KorvaneCore/api/ErrorMapping.hpp"
#include "KorvaneCore/api/StorageCalls.hpp"
#include "KorvaneCore/http/CurlSession.hpp"

#include <utility>

namespace Korvane {

namespace {

constexpr int unauthorized = 401;

bool isSuccess(int status) {
    return status >= 200 && status <= 299;
}

/// What the tokens do, with the errors of the API.
template <class Result>
asio::awaitable<Result> withAPIErrors(asio::awaitable<Result> operation) {
    try {
        co_return co_await std::move(operation);
    } catch (const std::exception& error) {
        ErrorMapping::rethrow(error, "TokenPair");
    }
}

} // namespace

APIClient::APIClient(const asio::any_io_executor& executor, KRConfiguration configuration,
                     std::shared_ptr<KeychainStore> keychain, std::shared_ptr<HTTPSession> session,
                     std::shared_ptr<Clock> clock)
    : configuration_(std::move(configuration)),
      session_(session ? std::move(session) : std::make_shared<CurlSession>()),
      tokens_(std::make_shared<AccessTokens>(asio::make_strand(executor), configuration_.apiBaseURL,
                                             std::move(keychain), session_, std::move(clock))) {}

asio::awaitable<void> APIClient::setAuthFailureHandler(AuthFailureHandler handler) {
    return withAPIErrors(tokens_->setFailureHandler(std::move(handler)));
}

asio::awaitable<void> APIClient::setTokens(TokenPair pair) {
    return withAPIErrors(tokens_->set(std::move(pair)));
}

asio::awaitable<void> APIClient::clearTokens() {
    return withAPIErrors(tokens_->clear());
}

asio::awaitable<bool> APIClient::hasTokens() {
    return withAPIErrors(tokens_->exist());
}

asio::awaitable<SecretText> APIClient::currentAccessToken() {
    return withAPIErrors(tokens_->current());
}

asio::awaitable<HTTPResponse> APIClient::perform(APICall call, std::string record) {
    const bool wantsInfo = call.returnsErrorInfo;
    try {
        auto answer = co_await exchange(std::move(call));
        if (isSuccess(answer.status))
            co_return answer;
        const auto info = ErrorMapping::errorInfo(answer);
        if (info.error.is<APIError::DeviceRevoked>())
            co_await tokens_->report(info.error);
        if (wantsInfo)
            throw info;
        throw info.error;
    } catch (const std::exception& error) {
        ErrorMapping::rethrow(error, record);
    }
}

/// The answer to a call, its access token renewed once where the server wants that. A 401 that ends the
/// sign-in is thrown, whatever the call's flags.
asio::awaitable<HTTPResponse> APIClient::exchange(APICall call) {
    const auto& base = configuration_.apiBaseURL;
    if (!call.authenticated) {
        auto answer = co_await session_->send(call.request(base, std::nullopt));
        co_return answer;
    }
    const auto refusesProof = [&call](const APIErrorInfo& info) {
        return call.credentialCheck && !info.error.is<APIError::DeviceRevoked>() &&
               !ErrorMapping::isTokenProblem(info);
    };

    auto token = co_await tokens_->current();
    auto answer = co_await session_->send(call.request(base, token.text()));
    if (answer.status != unauthorized)
        co_return answer;
    auto refusal = ErrorMapping::errorInfo(answer);
    if (refusesProof(refusal))
        throw refusal;
    if (!refusal.error.is<APIError::DeviceRevoked>()) {
        token = co_await tokens_->insteadOf(std::move(token));
        answer = co_await session_->send(call.request(base, token.text()));
        if (answer.status != unauthorized)
            co_return answer;
        refusal = ErrorMapping::errorInfo(answer);
        if (refusesProof(refusal))
            throw refusal;
    }
    const auto error =
        refusal.error.is<APIError::Unauthorized>() ? APIError(APIError::DeviceRevoked{}) : refusal.error;
    co_await tokens_->report(error);
    throw error;
}

asio::awaitable<PartUploadResponse> APIClient::putPart(std::string url, KRCrypto::ByteView data) {
    return StorageCalls::putPart(session_, std::move(url), data);
}

asio::awaitable<KRCrypto::Bytes> APIClient::getRange(std::string url, ByteRange range) {
    return StorageCalls::getRange(session_, std::move(url), range);
}

asio::awaitable<void> APIClient::getRangeInto(std::string url, std::int64_t first,
                                              KRCrypto::MutableBytes into) {
    return StorageCalls::getRangeInto(session_, std::move(url), first, into);
}

} // namespace Korvane
