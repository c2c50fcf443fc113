#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/http/Body.hpp"
#include "KorvaneCore/platform/Async.hpp"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Korvane {

struct HTTPHeader {
    std::string name;
    KRCrypto::SecretBytes value; ///< secret, since tokens travel here
};

struct HTTPRequest {
    std::string method;
    std::string url; ///< absolute, http or https
    std::vector<HTTPHeader> headers;
    /// Sent with its length. Borrowed: must live until send() has returned or thrown.
    std::optional<KRCrypto::ByteView> body;
    /// The longest body of a 2xx answer that is read into the answer, in bytes; of a longer one to another
    /// status so much is in the answer.
    std::size_t maxAnswerSize = 0;

    // Both borrowed like the body.
    BodySource* source = nullptr; ///< sent in place of `body`
    BodySink* sink = nullptr;     ///< takes the body of a 2xx answer, which then is not in the answer

    /// How long nothing may move; none for the session's own time.
    std::optional<std::chrono::seconds> idle = std::nullopt;

    /// Without it, a request whose way leads over a mobile network fails with HTTPError (connection), unsent.
    bool allowsCellular = true;

    /// On a connection of its own. A request on a kept connection that ends without an answer is sent once
    /// more; this one never is.
    bool freshConnection = false;
};

struct HTTPResponse {
    int status = 0;
    std::vector<std::pair<std::string, std::string>> headers;
    KRCrypto::Bytes body;

    /// The first header of that name, in any case.
    [[nodiscard]] std::optional<std::string_view> header(std::string_view name) const;
};

/// Sends HTTP requests, many at once. An interface, so that tests can stand in for the network.
class HTTPSession {
public:
    HTTPSession() = default;
    HTTPSession(const HTTPSession&) = delete;
    HTTPSession& operator=(const HTTPSession&) = delete;
    virtual ~HTTPSession() = default;

    /// Suspends on the caller's executor until the whole answer is here; every status is an answer. Throws
    /// HTTPError when there is none, boost::system::system_error (operation_aborted) when the coroutine is
    /// cancelled. Callable from any thread.
    virtual asio::awaitable<HTTPResponse> send(HTTPRequest request) = 0;
};

} // namespace Korvane
