#include "KorvaneService/HTTPServer.hpp"

#include "KRCrypto/UnicodeText.hpp"
#include "KorvaneCore/platform/FileDescriptor.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>
#include <fcntl.h>
#include <fmt/chrono.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <sstream>

namespace Korvane {

namespace beast = boost::beast;
namespace http = beast::http;
using asio::ip::tcp;
using Body = http::vector_body<std::uint8_t>;

namespace {

constexpr std::chrono::minutes idleTime{5};
constexpr std::size_t readBuffer = std::size_t{256} << 10;
constexpr std::size_t sliceBuffer = std::size_t{512} << 10;
constexpr int threadCount = 2;
constexpr std::chrono::milliseconds acceptPause{100};

/// A request with what the connection itself needs to know.
struct Incoming {
    std::optional<Request> request; ///< none when it could not be understood
    unsigned version = 11;
    bool keepAlive = false;
    std::size_t bytes = 0; ///< of the body
};

/// None when the target is no path of UTF-8 texts: they come back in answers.
std::optional<Request> understood(http::request<Body>&& message) {
    const auto url = boost::urls::parse_origin_form({message.target().data(), message.target().size()});
    if (!url)
        return std::nullopt;
    Request request;
    request.method = std::string(message.method_string());
    for (const auto& segment : url->segments())
        request.path.push_back(segment);
    boost::urls::encoding_opts plusIsSpace;
    plusIsSpace.space_as_plus = true;
    for (const auto& item : url->params(plusIsSpace))
        request.query[item.key] = item.value;
    if (!std::ranges::all_of(request.path, KRCrypto::isUTF8) ||
        !std::ranges::all_of(request.query, [](const auto& item) {
            return KRCrypto::isUTF8(item.first) && KRCrypto::isUTF8(item.second);
        }))
        return std::nullopt;
    request.body = std::move(message.body());
    request.headers = std::move(static_cast<http::fields&>(message));
    return request;
}

std::string_view targetOf(const http::request<Body>& message) {
    return {message.target().data(), message.target().size()};
}

std::string headerOf(const Reply& reply, const Incoming& incoming) {
    http::response<http::empty_body> header{http::int_to_status(reply.status), incoming.version};
    for (const auto& [name, value] : reply.headers)
        header.set(name, value);
    if (reply.status != 204) {
        header.set(http::field::content_type, reply.contentType);
        header.content_length(reply.length());
    }
    header.keep_alive(incoming.keepAlive);
    return (std::ostringstream() << header.base()).str();
}

asio::awaitable<void> sendSlice(beast::tcp_stream& stream, const FileSlice& slice) {
    const FileDescriptor file(::open(slice.file.c_str(), O_RDONLY | O_CLOEXEC));
    std::vector<std::uint8_t> buffer(std::min<std::uint64_t>(slice.length, sliceBuffer));
    for (std::uint64_t sent = 0; sent < slice.length;) {
        const auto wanted = std::min<std::uint64_t>(buffer.size(), slice.length - sent);
        const auto got = ::pread(file.get(), buffer.data(), wanted, static_cast<off_t>(slice.offset + sent));
        if (got <= 0)
            throw FileError("read", slice.file,
                            std::error_code(got < 0 ? errno : EIO, std::generic_category()));
        co_await asio::async_write(stream, asio::buffer(buffer.data(), static_cast<std::size_t>(got)),
                                   asio::use_awaitable);
        sent += static_cast<std::uint64_t>(got);
    }
}

/// Sends all of it, or the header and the first `most` bytes of the body.
asio::awaitable<void> send(beast::tcp_stream& stream, const Reply& reply, const Incoming& incoming,
                           std::uint64_t most = std::numeric_limits<std::uint64_t>::max()) {
    const auto header = headerOf(reply, incoming);
    const auto body = std::string_view(reply.body).substr(0, most);
    const std::array start{asio::buffer(header), asio::buffer(body)};
    co_await asio::async_write(stream, start, asio::use_awaitable);
    most -= body.size();
    for (auto slice : reply.slices) {
        slice.length = std::min(slice.length, most);
        most -= slice.length;
        co_await sendSlice(stream, slice);
    }
}

asio::awaitable<Incoming> receive(beast::tcp_stream& stream, beast::flat_buffer& buffer,
                                  const HTTPServer::Application& application) {
    http::request_parser<Body> parser;
    parser.body_limit(boost::none);
    co_await http::async_read_header(stream, buffer, parser, asio::use_awaitable);
    const auto limit = application.bodyLimit(targetOf(parser.get()));
    parser.body_limit(limit);
    // The parser would hold a length it was told against the limit while it reads the header only.
    if (const auto length = parser.content_length(); length && *length > limit)
        throw boost::system::system_error(http::make_error_code(http::error::body_limit));
    if (beast::iequals(parser.get()[http::field::expect], "100-continue")) {
        static constexpr std::string_view goOn = "HTTP/1.1 100 Continue\r\n\r\n";
        co_await asio::async_write(stream, asio::buffer(goOn), asio::use_awaitable);
    }
    co_await http::async_read(stream, buffer, parser, asio::use_awaitable);
    auto message = parser.release();
    Incoming incoming;
    incoming.version = message.version();
    incoming.keepAlive = message.keep_alive();
    incoming.bytes = message.body().size();
    incoming.request = understood(std::move(message));
    co_return incoming;
}

Reply replyOf(const Refusal& refusal) {
    Reply reply;
    reply.status = refusal.status();
    reply.body = refusal.envelope();
    if (const auto wait = refusal.wait())
        reply.headers.emplace_back("Retry-After", std::to_string(wait->count()));
    return reply;
}

Reply replyOf(const Fault::Answer& answer) {
    Reply reply;
    reply.status = answer.status;
    reply.body = answer.body;
    reply.headers = answer.headers;
    return reply;
}

} // namespace

HTTPServer::HTTPServer(std::uint16_t port, Application application, Faults& faults)
    : application_(std::move(application)),
      faults_(faults),
      context_(threadCount),
      acceptor_(context_, tcp::endpoint(asio::ip::address_v4::loopback(), port)) {
    asio::co_spawn(context_, accept(), [](const std::exception_ptr& error) {
        try {
            if (error)
                std::rethrow_exception(error);
        } catch (const std::exception& failure) {
            Log::error("service", std::string("no longer listening: ") + failure.what());
        }
    });
}

void HTTPServer::start() {
    for (int i = 0; i < threadCount; ++i)
        threads_.emplace_back([this] { context_.run(); });
}

HTTPServer::~HTTPServer() {
    context_.stop();
}

std::uint16_t HTTPServer::port() const {
    return acceptor_.local_endpoint().port();
}

asio::awaitable<void> HTTPServer::accept() {
    asio::steady_timer pause(context_);
    for (;;) {
        boost::system::error_code refused;
        auto socket = co_await acceptor_.async_accept(asio::make_strand(context_),
                                                      asio::redirect_error(asio::use_awaitable, refused));
        if (refused) { // too many open files, say
            Log::error("service", "cannot accept a connection: " + refused.message());
            pause.expires_after(acceptPause);
            co_await pause.async_wait(asio::use_awaitable);
            continue;
        }
        boost::system::error_code gone; // then serve() finds it out
        socket.set_option(tcp::no_delay(true), gone);
        const auto strand = socket.get_executor();
        asio::co_spawn(strand, serve(beast::tcp_stream(std::move(socket))),
                       [](const std::exception_ptr& end) {
                           try {
                               if (end)
                                   std::rethrow_exception(end);
                           } catch (const std::exception& reason) {
                               Log::debug("service", std::string("connection ended: ") + reason.what());
                           }
                       });
    }
}

Reply HTTPServer::answered(const Request& request) const {
    try {
        return application_.answer(request);
    } catch (const Refusal& refusal) {
        return replyOf(refusal);
    } catch (const std::exception& error) {
        Log::error("service", error.what());
        return replyOf(Refusal(500, "internal", "the service failed"));
    }
}

void HTTPServer::stamp(Reply& reply) const {
    if (std::ranges::any_of(reply.headers,
                            [](const auto& header) { return beast::iequals(header.first, "Date"); }))
        return;
    const auto now = std::chrono::floor<std::chrono::seconds>(application_.now());
    reply.headers.emplace_back("Date", fmt::format("{:%a, %d %b %Y %H:%M:%S} GMT", fmt::gmtime(now)));
}

// What a fault leaves of the answer; none when the connection ends without one.
asio::awaitable<std::optional<Reply>> HTTPServer::faulted(const Request& request,
                                                          const std::optional<Fault::Kind>& fault) {
    if (!fault)
        co_return answered(request);
    if (const auto* answer = std::get_if<Fault::Answer>(&*fault))
        co_return replyOf(*answer);
    if (std::holds_alternative<Fault::DropBefore>(*fault))
        co_return std::nullopt;
    if (std::holds_alternative<Fault::Hold>(*fault))
        co_await faults_.hold();
    auto reply = answered(request);
    if (std::holds_alternative<Fault::DropAfter>(*fault))
        co_return std::nullopt;
    if (const auto* garbage = std::get_if<Fault::Garbage>(&*fault)) {
        reply.slices.clear();
        reply.body = garbage->body;
    }
    co_return reply;
}

asio::awaitable<void> HTTPServer::serve(beast::tcp_stream stream) {
    beast::flat_buffer buffer;
    buffer.reserve(readBuffer);
    for (;;) {
        stream.expires_after(idleTime);
        boost::system::error_code tooLarge;
        Incoming incoming;
        try {
            incoming = co_await receive(stream, buffer, application_);
        } catch (const boost::system::system_error& error) {
            if (error.code() != http::error::body_limit)
                throw;
            tooLarge = error.code();
        }
        if (tooLarge) {
            co_await send(stream, replyOf(Refusal::tooLarge()), incoming);
            co_return;
        }
        stream.expires_never();
        if (!incoming.request) {
            co_await send(stream, replyOf(Refusal::badRequest("the target is no path")), incoming);
            if (!incoming.keepAlive)
                co_return;
            continue;
        }
        if (application_.latency.count() > 0) {
            asio::steady_timer distance(stream.get_executor(), application_.latency);
            co_await distance.async_wait(asio::use_awaitable);
        }
        const auto fault = faults_.next(application_.routeName(*incoming.request), incoming.bytes);
        auto reply = co_await faulted(*incoming.request, fault);
        if (!reply)
            co_return;
        stamp(*reply);
        if (const auto* cut = fault ? std::get_if<Fault::Truncate>(&*fault) : nullptr) {
            co_await send(stream, *reply, incoming, cut->bytes);
            co_return;
        }
        co_await send(stream, *reply, incoming);
        if (!incoming.keepAlive)
            co_return;
    }
}

} // namespace Korvane
