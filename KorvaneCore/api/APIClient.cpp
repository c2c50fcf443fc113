#include "KorvaneCore/api/APIClient.hpp"

#include "KorvaneCore/api/ErrorMapping.hpp"
#include "KorvaneCore/http/CurlSession.hpp"

#include <boost/system/system_error.hpp>

#include <algorithm>
#include <utility>

namespace Korvane {

namespace {

constexpr int unauthorized = 401;
constexpr std::size_t storageErrorBytes = 64 << 10;

bool isSuccess(int status) {
    return status >= 200 && status <= 299;
}

HTTPHeader header(std::string name, std::string_view value) {
    return {std::move(name), KRCrypto::SecretBytes::copyOf(value)};
}

/// What a failed session means to a caller.
[[noreturn]] void rethrow(const std::exception& error, const std::string& record) {
    if (const auto* failure = dynamic_cast<const HTTPError*>(&error))
        throw ErrorMapping::sessionError(*failure, record);
    if (const auto* failure = dynamic_cast<const boost::system::system_error*>(&error);
        failure != nullptr && failure->code() == asio::error::operation_aborted)
        throw APIError(APIError::Cancelled{});
    throw;
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
    return tokens_->setFailureHandler(std::move(handler));
}

asio::awaitable<void> APIClient::setTokens(TokenPair pair) {
    return tokens_->set(std::move(pair));
}

asio::awaitable<void> APIClient::clearTokens() {
    return tokens_->clear();
}

asio::awaitable<bool> APIClient::hasTokens() {
    return tokens_->exist();
}

asio::awaitable<SecretText> APIClient::currentAccessToken() {
    try {
        auto token = co_await tokens_->current();
        co_return token;
    } catch (const std::exception& error) {
        rethrow(error, "TokenPair");
    }
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
        rethrow(error, record);
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

asio::awaitable<HTTPResponse> APIClient::storageExchange(HTTPRequest request) {
    try {
        auto answer = co_await session_->send(std::move(request));
        if (!isSuccess(answer.status))
            throw ErrorMapping::errorInfo(answer);
        co_return answer;
    } catch (const std::exception& error) {
        rethrow(error, "answer");
    }
}

asio::awaitable<PartUploadResponse> APIClient::putPart(std::string url, KRCrypto::ByteView data) {
    const auto answer = co_await storageExchange({"PUT",
                                                  std::move(url),
                                                  {header("Content-Type", "application/octet-stream")},
                                                  data,
                                                  AnswerLimit::record});
    try {
        co_return KRJSON::read<PartUploadResponse>(KRCrypto::asText(answer.body));
    } catch (const JSONError&) {
        // A storage server may say anything, or nothing, about a part it took.
        co_return PartUploadResponse{};
    }
}

asio::awaitable<KRCrypto::Bytes> APIClient::getRange(std::string url, ByteRange range) {
    if (range.first < 0 || range.end < range.first)
        throw APIError(APIError::BadRequest{"not a byte range"});
    if (range.first == range.end)
        co_return KRCrypto::Bytes{};
    const auto length = static_cast<std::size_t>(range.end - range.first);
    const auto bytes = "bytes=" + std::to_string(range.first) + "-" + std::to_string(range.end - 1);
    bool otherLength = false;
    try {
        auto answer = co_await storageExchange({"GET",
                                                std::move(url),
                                                {header("Range", bytes)},
                                                std::nullopt,
                                                std::max(length, storageErrorBytes)});
        if (answer.body.size() == length)
            co_return std::move(answer.body);
        otherLength = true;
    } catch (const APIError& error) {
        otherLength = error.is<APIError::Decoding>(); // longer than the limit
        if (!otherLength)
            throw;
    }
    throw APIError(APIError::Transport{"the answer is not the range asked for", otherLength});
}

} // namespace Korvane
