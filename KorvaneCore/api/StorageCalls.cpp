#include "KorvaneCore/api/StorageCalls.hpp"

#include "KorvaneCore/api/ErrorMapping.hpp"

#include <limits>
#include <utility>

namespace Korvane::StorageCalls {

namespace {

constexpr std::size_t maxAnswer = 64 << 10; ///< of an error, or of what is said about a part
constexpr int wholeFile = 200;

HTTPHeader header(std::string name, std::string_view value) {
    return {std::move(name), KRCrypto::SecretBytes::copyOf(value)};
}

/// Retryable: the next answer may be another.
APIError otherLength() {
    return APIError::Transport{"the answer is not the range asked for", true};
}

} // namespace

HTTPRequest putRequest(std::string url) {
    HTTPRequest request;
    request.method = "PUT";
    request.url = std::move(url);
    request.headers.push_back(header("Content-Type", "application/octet-stream"));
    request.maxAnswerSize = maxAnswer;
    return request;
}

HTTPRequest getRequest(std::string url, ByteRange range) {
    if (range.first < 0 || range.end <= range.first)
        throw APIError(APIError::BadRequest{"not a byte range"});
    HTTPRequest request;
    request.method = "GET";
    request.url = std::move(url);
    request.headers.push_back(
        header("Range", "bytes=" + std::to_string(range.first) + "-" + std::to_string(range.end - 1)));
    request.maxAnswerSize = maxAnswer;
    return request;
}

void requireSuccess(const HTTPResponse& answer) {
    if (answer.status < 200 || answer.status > 299)
        throw ErrorMapping::errorInfo(answer);
}

void requireRange(const HTTPResponse& answer, ByteRange range, std::uint64_t received) {
    requireSuccess(answer);
    const bool startsElsewhere = answer.status == wholeFile && range.first != 0;
    if (startsElsewhere || received != static_cast<std::uint64_t>(range.end - range.first))
        throw otherLength();
}

ByteRange rangeOf(std::int64_t first, std::size_t length) {
    if (first < 0 || length > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max() - first))
        throw APIError(APIError::BadRequest{"not a byte range"});
    return {first, first + static_cast<std::int64_t>(length)};
}

std::size_t lengthOf(ByteRange range) {
    if (range.first < 0 || range.end < range.first)
        throw APIError(APIError::BadRequest{"not a byte range"});
    return static_cast<std::size_t>(range.end - range.first);
}

void rethrow(const std::exception& error) {
    const auto* failure = dynamic_cast<const HTTPError*>(&error);
    if (failure != nullptr && failure->kind() == HTTPError::Kind::tooLarge)
        throw otherLength();
    ErrorMapping::rethrow(error, "answer");
}

namespace {

asio::awaitable<HTTPResponse> send(HTTPSession& session, HTTPRequest request) {
    try {
        co_return co_await session.send(std::move(request));
    } catch (const std::exception& error) {
        rethrow(error);
    }
}

} // namespace

asio::awaitable<PartUploadResponse> putPart(std::shared_ptr<HTTPSession> session, std::string url,
                                            KRCrypto::ByteView data, bool allowsCellular) {
    HeadSink sink(maxAnswer);
    auto request = putRequest(std::move(url));
    request.body = data;
    request.sink = &sink;
    request.allowsCellular = allowsCellular;
    const auto answer = co_await send(*session, std::move(request));
    requireSuccess(answer);
    try {
        co_return KRJSON::read<PartUploadResponse>(KRCrypto::asText(sink.head()));
    } catch (const JSONError&) {
        // A storage server may say anything, or nothing, about a part it took.
        co_return PartUploadResponse{};
    }
}

asio::awaitable<KRCrypto::Bytes> getRange(std::shared_ptr<HTTPSession> session, std::string url,
                                          ByteRange range) {
    KRCrypto::Bytes bytes(lengthOf(range));
    co_await getRangeInto(std::move(session), std::move(url), range.first, bytes);
    co_return bytes;
}

asio::awaitable<void> getRangeInto(std::shared_ptr<HTTPSession> session, std::string url, std::int64_t first,
                                   KRCrypto::MutableBytes into, bool allowsCellular) {
    const auto range = rangeOf(first, into.size());
    if (into.empty())
        co_return;
    BufferSink sink(into);
    auto request = getRequest(std::move(url), range);
    request.sink = &sink;
    request.allowsCellular = allowsCellular;
    const auto answer = co_await send(*session, std::move(request));
    requireRange(answer, range, sink.received());
}

} // namespace Korvane::StorageCalls
