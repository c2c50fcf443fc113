#include "tests/support/LoopbackServer.hpp"

#include "KorvaneCore/platform/Spawn.hpp"

#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>

namespace Korvane::Testing {

namespace http = boost::beast::http;
using asio::ip::tcp;

LoopbackServer::LoopbackServer(std::function<Answer(const Request&)> handler)
    : handler_(std::move(handler)), acceptor_(context_, tcp::endpoint(asio::ip::address_v4::loopback(), 0)) {
    spawn(context_.get_executor(), "test-server", accept());
    thread_ = std::thread([this] { context_.run(); });
}

LoopbackServer::~LoopbackServer() {
    context_.stop();
    thread_.join();
}

std::string LoopbackServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port()) + path;
}

std::size_t LoopbackServer::connections() const {
    const MutexLock lock(mutex_);
    return connections_;
}

asio::awaitable<void> LoopbackServer::accept() {
    while (true) {
        auto socket = co_await acceptor_.async_accept(asio::use_awaitable);
        {
            const MutexLock lock(mutex_);
            ++connections_;
        }
        socket.set_option(tcp::no_delay(true));
        spawn(context_.get_executor(), "test-server", serve(std::move(socket)));
    }
}

asio::awaitable<void> LoopbackServer::serve(tcp::socket socket) {
    boost::beast::flat_buffer buffer;
    try {
        while (true) {
            Request request;
            co_await http::async_read(socket, buffer, request, asio::use_awaitable);
            const auto answer = handler_(request);
            if (answer.hangs || !answer.raw.empty()) {
                co_await asio::async_write(socket, asio::buffer(answer.raw), asio::use_awaitable);
                asio::steady_timer never(context_, asio::steady_timer::time_point::max());
                if (answer.hangs)
                    co_await never.async_wait(asio::use_awaitable);
                co_return;
            }
            http::response<http::string_body> response(static_cast<http::status>(answer.status), 11,
                                                       answer.body);
            for (const auto& [name, value] : answer.headers)
                response.insert(name, value);
            response.prepare_payload();
            co_await http::async_write(socket, response, asio::use_awaitable);
        }
    } catch (const boost::system::system_error&) {
        co_return; // the client closed the connection
    }
}

} // namespace Korvane::Testing
