#pragma once

#include "KorvaneCore/platform/Async.hpp"
#include "KorvaneCore/platform/Mutex.hpp"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>

#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace Korvane::Testing {

/// A small HTTP server on a free port of the loopback interface, on a thread of its own.
class LoopbackServer {
public:
    using Request = boost::beast::http::request<boost::beast::http::string_body>;

    struct Answer {
        unsigned status = 200;
        // The initialisers let designated ones leave members out.
        // NOLINTBEGIN(readability-redundant-member-init)
        std::string body{};
        std::vector<std::pair<std::string, std::string>> headers{};
        std::string raw{}; ///< sent as it is, instead of all that, before the connection is closed
        // NOLINTEND(readability-redundant-member-init)
        bool hangs = false; ///< says nothing more after `raw`, and keeps the connection
    };

    /// `handler` answers each request, on the server's thread.
    explicit LoopbackServer(std::function<Answer(const Request&)> handler);
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;
    ~LoopbackServer();

    [[nodiscard]] std::string url(const std::string& path = "") const;

    [[nodiscard]] std::size_t connections() const KR_EXCLUDES(mutex_);

private:
    asio::awaitable<void> accept();
    asio::awaitable<void> serve(asio::ip::tcp::socket socket);

    std::function<Answer(const Request&)> handler_;
    asio::io_context context_{1};
    asio::ip::tcp::acceptor acceptor_;
    mutable Mutex mutex_;
    std::size_t connections_ KR_GUARDED_BY(mutex_) = 0;
    std::thread thread_;
};

} // namespace Korvane::Testing
