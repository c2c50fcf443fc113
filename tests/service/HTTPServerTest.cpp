#include "tests/support/LocalService.hpp"

#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/use_future.hpp>
#include <boost/asio/write.hpp>
#include <gtest/gtest.h>

namespace Korvane::Testing {
namespace {

/// All that the service sends until it closes the connection, which it must do.
std::string answerTo(std::uint16_t port, const std::string& request) {
    asio::io_context context;
    asio::ip::tcp::socket socket(context);
    socket.connect({asio::ip::address_v4::loopback(), port});
    asio::write(socket, asio::buffer(request));
    std::string answer;
    boost::system::error_code end;
    asio::async_read(socket, asio::dynamic_buffer(answer),
                     [&](const boost::system::error_code& error, std::size_t) { end = error; });
    context.run_for(std::chrono::seconds(20));
    EXPECT_EQ(end, asio::error::eof) << request;
    return answer;
}

TEST(HTTPServer, RequestsThatCannotBeTakenAreRefusedAndTheConnectionEnds) {
    LocalService service([](ServiceSettings& settings) { settings.chunkSize = 10; });
    const std::string login = "POST /v1/auth/login HTTP/1.1\r\nContent-Length: ";
    const std::pair<std::string, std::string> rows[] = {
        {login + "8388609\r\n\r\n", "413"},
        {login + "9000000000000000000\r\n\r\n", "413"},
        {"PUT /storage/parts/a/1 HTTP/1.1\r\nContent-Length: 27\r\nExpect: 100-continue\r\n\r\n", "413"},
        {"GET nowhere HTTP/1.1\r\nConnection: close\r\n\r\n", "400"},
        {"GET /v1/folders/%ff HTTP/1.1\r\nConnection: close\r\n\r\n", "400"},
        {"GET /v1/auth/params?email=%ff HTTP/1.1\r\nConnection: close\r\n\r\n", "400"},
    };
    for (const auto& [request, status] : rows)
        EXPECT_TRUE(answerTo(service->port(), request).starts_with("HTTP/1.1 " + status)) << request;
}

} // namespace
} // namespace Korvane::Testing
