#include "KorvaneCore/http/CurlSession.hpp"

#include "KorvaneCore/http/HTTPError.hpp"
#include "KorvaneCore/platform/Mutex.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/LoopbackServer.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_future.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <future>

namespace Korvane {
namespace {

using Kind = HTTPError::Kind;
using Testing::LoopbackServer;
using Answer = LoopbackServer::Answer;

class CurlSessionTest : public testing::Test {
protected:
    HTTPResponse send(HTTPRequest request) {
        auto future = asio::co_spawn(context_, session_.send(std::move(request)), asio::use_future);
        context_.restart();
        context_.run();
        return future.get();
    }

    Kind failure(HTTPRequest request) {
        try {
            (void)send(std::move(request));
        } catch (const HTTPError& error) {
            return error.kind();
        }
        throw std::runtime_error("no error");
    }

    asio::io_context context_;
    CurlSession session_{{.idle = std::chrono::seconds(1), .total = std::chrono::seconds(20)}};
};

TEST_F(CurlSessionTest, CarriesMethodHeadersAndBodyOverOneConnection) {
    LoopbackServer::Request seen;
    LoopbackServer server([&](const LoopbackServer::Request& request) {
        seen = request;
        return Answer{201, "answer", {{"X-Of-Server", "yes"}, {"Set-Cookie", "a=b"}}, {}, false};
    });
    const auto body = KRCrypto::Bytes(300'000, 'x');
    for (const auto* method : {"GET", "POST", "PUT", "PATCH", "DELETE"})
        for (const std::optional<KRCrypto::ByteView> sent :
             {std::optional<KRCrypto::ByteView>(), std::optional<KRCrypto::ByteView>(body)}) {
            const auto response = send({method,
                                        server.url("/p/..?q=%2B"),
                                        {{"X-Of-Client", KRCrypto::SecretBytes::copyOf("v")}},
                                        sent,
                                        6});
            EXPECT_EQ(response.status, 201);
            EXPECT_EQ(KRCrypto::asText(response.body), "answer");
            EXPECT_EQ(response.header("x-of-server"), "yes");
            EXPECT_EQ(seen.method_string(), method);
            EXPECT_EQ(seen.target(), "/p/..?q=%2B") << "as given";
            EXPECT_EQ(seen["X-Of-Client"], "v");
            EXPECT_EQ(seen.body().size(), sent ? body.size() : 0);
            EXPECT_EQ(seen.count("Cookie") + seen.count("Expect") + seen.count("Content-Type"), 0U);
            if (sent || seen.method_string() == "POST")
                EXPECT_EQ(seen["Content-Length"], std::to_string(sent ? body.size() : 0));
        }
    EXPECT_EQ(server.connections(), 1U);
}

TEST_F(CurlSessionTest, BadServersGiveTypedErrors) {
    const std::string head = "HTTP/1.1 200 OK\r\n";
    const std::map<std::string, Answer> answers{
        {"/cut", {.raw = head + "Content-Length: 100\r\n\r\nshort"}},
        {"/cut-chunk", {.raw = head + "Transfer-Encoding: chunked\r\n\r\nff\r\nshort"}},
        {"/nothing", {.raw = std::string(1, '\n')}},
        {"/not-http", {.raw = "SSH-2.0-Server\r\n"}},
        {"/lying-short", {.raw = head + "Content-Length: -5\r\n\r\nshort"}},
        {"/lying-huge", {.raw = head + "Content-Length: 99999999999999\r\n\r\nshort"}},
        {"/large", {.body = std::string(1001, 'x')}},
        {"/large-unannounced", {.raw = head + "\r\n" + std::string(1001, 'x')}},
        {"/headers", {.raw = head + "X: " + std::string(90'000, 'x') + "\r\n\r\n"}},
        {"/hangs", {.hangs = true}},
        {"/hangs-midway", {.raw = head + "Content-Length: 100\r\n\r\nshort", .hangs = true}},
        {"/fits", {.body = std::string(1000, 'x')}},
        {"/redirect", {.status = 302, .headers = {{"Location", "/fits"}}}},
        {"/down", {.raw = "HTTP/1.1 502 Bad\r\nRetry-After:  7 \t\r\n\r\n" + std::string(1001, 'x')}},
    };
    LoopbackServer server(
        [&](const LoopbackServer::Request& request) { return answers.at(std::string(request.target())); });
    const std::pair<const char*, Kind> rows[] = {
        {"/cut", Kind::connection},       {"/cut-chunk", Kind::connection},
        {"/nothing", Kind::notHTTP},      {"/not-http", Kind::notHTTP},
        {"/lying-short", Kind::notHTTP},  {"/lying-huge", Kind::connection},
        {"/large", Kind::tooLarge},       {"/large-unannounced", Kind::tooLarge},
        {"/headers", Kind::connection},   {"/hangs", Kind::timeout},
        {"/hangs-midway", Kind::timeout},
    };
    for (const auto& [path, kind] : rows)
        EXPECT_EQ(failure({"GET", server.url(path), {}, std::nullopt, 1000}), kind) << path;
    EXPECT_EQ(send({"GET", server.url("/fits"), {}, std::nullopt, 1000}).body.size(), 1000U);
    EXPECT_EQ(send({"GET", server.url("/redirect"), {}, std::nullopt, 1000}).status, 302);
    const auto down = send({"GET", server.url("/down"), {}, std::nullopt, 1000});
    EXPECT_EQ(down.status, 502);
    EXPECT_EQ(down.body.size(), 1000U);
    EXPECT_EQ(down.header("Retry-After"), "7");
}

TEST_F(CurlSessionTest, RequestsThatCannotBeSentAreRefused) {
    const auto header = [](const char* name, std::string_view value) {
        return std::vector<HTTPHeader>{{name, KRCrypto::SecretBytes::copyOf(value)}};
    };
    for (const auto* url :
         {"", "http://", "file:///etc/passwd", "ftp://127.0.0.1/", "http://127.0.0.1:99999/", "http://a b/"})
        EXPECT_EQ(failure({"GET", url, {}, std::nullopt, 10}), Kind::malformed) << url;
    EXPECT_EQ(failure({"GET", "http://127.0.0.1:1/", header("Authorization", "Bearer a\r\nX: y"),
                       std::nullopt, 10}),
              Kind::malformed);
    EXPECT_EQ(failure({"GET", "http://127.0.0.1:1/", header("A:b", "c"), std::nullopt, 10}), Kind::malformed);
    EXPECT_EQ(failure({"GET", "http://127.0.0.1:1/", {}, std::nullopt, 10}), Kind::connection);
}

TEST_F(CurlSessionTest, AServerMustProveWhoItIs) {
    const Testing::TemporaryFolder folder;
    const auto certificate = (folder / "cert.pem").string();
    const auto key = (folder / "key.pem").string();
    Testing::ChildProcess maker({"/usr/bin/openssl", "req", "-x509", "-newkey", "ed25519", "-nodes", "-subj",
                                 "/CN=localhost", "-addext", "subjectAltName=DNS:localhost", "-keyout", key,
                                 "-out", certificate});
    ASSERT_EQ(maker.wait(), 0);
    Testing::ChildProcess server({"/usr/bin/openssl", "s_server", "-www", "-accept", "127.0.0.1:0", "-cert",
                                  certificate, "-key", key});
    std::string line;
    while (!line.starts_with("ACCEPT"))
        line = server.readLine();
    const auto port = line.substr(line.rfind(':'));
    CurlSession trusting({.trustedCertificates = certificate});
    const auto ask = [&](CurlSession& session, const std::string& host) {
        auto answer = asio::co_spawn(
            context_, session.send({"GET", "https://" + host + port, {}, std::nullopt, 100'000}),
            asio::use_future);
        context_.restart();
        context_.run();
        return answer.get().status;
    };
    EXPECT_EQ(ask(trusting, "localhost"), 200);
    for (const auto& [session, host] : {std::pair(&session_, "localhost"), std::pair(&trusting, "127.0.0.1")})
        try {
            ask(*session, host);
            FAIL() << host;
        } catch (const HTTPError& error) {
            EXPECT_EQ(error.kind(), Kind::certificate) << error.what();
        }
}

TEST_F(CurlSessionTest, ManyAreUnderWayAndOneCanBeCancelled) {
    constexpr int others = 8;
    std::promise<void> arrived;
    LoopbackServer server([&](const LoopbackServer::Request& request) {
        if (request.target() == "/hangs")
            arrived.set_value();
        return Answer{.body = "ok", .hangs = request.target() == "/hangs"};
    });
    CurlSession patient;
    asio::cancellation_signal signal;
    auto cancelled = asio::co_spawn(
        context_, patient.send({"PUT", server.url("/hangs"), {}, KRCrypto::asBytes("body"), 10}),
        asio::bind_cancellation_slot(signal.slot(), asio::use_future));
    std::vector<std::future<HTTPResponse>> answered;
    for (int i = 0; i < others; ++i)
        answered.push_back(asio::co_spawn(
            context_, patient.send({"GET", server.url("/"), {}, std::nullopt, 10}), asio::use_future));
    std::thread runner([&] { context_.run(); });
    for (auto& answer : answered)
        EXPECT_EQ(answer.get().status, 200);
    arrived.get_future().wait();
    asio::post(context_, [&] { signal.emit(asio::cancellation_type::terminal); });
    EXPECT_THROW(cancelled.get(), boost::system::system_error);
    runner.join();
}

TEST_F(CurlSessionTest, EndingTheSessionAnswersWhoWaits) {
    std::promise<void> arrived;
    LoopbackServer server([&](const LoopbackServer::Request&) {
        arrived.set_value();
        return Answer{.hangs = true};
    });
    auto closing = std::make_unique<CurlSession>();
    auto waiting = asio::co_spawn(context_, closing->send({"GET", server.url("/"), {}, std::nullopt, 10}),
                                  asio::use_future);
    context_.poll();
    arrived.get_future().wait();
    closing.reset();
    context_.run();
    EXPECT_THROW(waiting.get(), HTTPError);
}

} // namespace
} // namespace Korvane
