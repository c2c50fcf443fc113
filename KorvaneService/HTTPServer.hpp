#pragma once

#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneService/Exchange.hpp"
#include "KorvaneService/Faults.hpp"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/tcp_stream.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace Korvane {

/// HTTP/1.1 on 127.0.0.1: reads a request whole, asks the application for its answer, sends it; connections
/// stay open between requests. Requests of several connections are answered at the same time, on the server's
/// own threads.
class HTTPServer {
public:
    /// What answers. Both are called on the server's threads and throw Refusal.
    struct Application {
        /// The name of the request's route, for the faults.
        std::function<std::string(const Request&)> routeName;
        std::function<Reply(const Request&)> answer;
        /// Most bytes of a body sent to this path.
        std::function<std::uint64_t(std::string_view path)> bodyLimit;
        std::chrono::milliseconds latency{0}; ///< before each answer
        /// The time that answers tell.
        std::function<Clock::Time()> now;
    };

    /// Takes the port, 0 for any free one; who connects waits for start(). `faults` outlives the server.
    /// Throws boost::system::system_error when the port cannot be had.
    HTTPServer(std::uint16_t port, Application application, Faults& faults);
    HTTPServer(const HTTPServer&) = delete;
    HTTPServer& operator=(const HTTPServer&) = delete;

    /// Ends all connections, wherever they are.
    ~HTTPServer();

    /// Answers from now on. Once.
    void start();

    [[nodiscard]] std::uint16_t port() const;

private:
    asio::awaitable<void> accept();
    asio::awaitable<void> serve(boost::beast::tcp_stream stream);
    asio::awaitable<std::optional<Reply>> faulted(const Request& request,
                                                  const std::optional<Fault::Kind>& fault);
    Reply answered(const Request& request) const;
    void stamp(Reply& reply) const;

    Application application_;
    Faults& faults_;
    asio::io_context context_;
    asio::ip::tcp::acceptor acceptor_;
    std::vector<std::jthread> threads_;
};

} // namespace Korvane
