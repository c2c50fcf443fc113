#include "KorvaneCore/background/MessageChannel.hpp"

#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Spawn.hpp"

#include <boost/asio/buffer.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/endian/conversion.hpp>
#include <boost/system/system_error.hpp>

#include <array>

namespace Korvane {

namespace {

constexpr std::size_t lengthBytes = 4;

/// The length and the text.
std::string framed(const std::string& text) {
    std::array<unsigned char, lengthBytes> length{};
    boost::endian::store_little_u32(length.data(), static_cast<std::uint32_t>(text.size()));
    return std::string(length.begin(), length.end()) + text;
}

} // namespace

MessageChannel::MessageChannel(const asio::any_io_executor& executor, FileDescriptor connection)
    : socket_(executor, asio::local::stream_protocol(), connection.get()) {
    (void)connection.release(); // it is the socket's now
}

asio::awaitable<std::string> MessageChannel::receive() {
    const auto self = shared_from_this();
    std::array<unsigned char, lengthBytes> prefix{};
    co_await asio::async_read(socket_, asio::buffer(prefix), asio::use_awaitable);
    const auto length = boost::endian::load_little_u32(prefix.data());
    if (length > maxLength)
        throw MessageTooLong();
    std::string text(length, '\0');
    co_await asio::async_read(socket_, asio::buffer(text), asio::use_awaitable);
    co_return text;
}

void MessageChannel::send(const std::string& text) {
    waiting_.push_back(framed(text));
    if (writing_)
        return;
    writing_ = true;
    spawn(socket_.get_executor(), "transfers", write());
}

asio::awaitable<void> MessageChannel::write() {
    const auto self = shared_from_this();
    try {
        while (!waiting_.empty()) {
            const auto text = std::move(waiting_.front());
            waiting_.pop_front();
            co_await asio::async_write(socket_, asio::buffer(text), asio::use_awaitable);
        }
    } catch (const boost::system::system_error& error) {
        // Not closed: what the other side said before it left can still be received.
        Log::debug("transfers", error.what());
        waiting_.clear();
    }
    writing_ = false;
    if (finishing_)
        close();
}

void MessageChannel::finish() {
    finishing_ = true;
    if (!writing_)
        close();
}

void MessageChannel::close() {
    boost::system::error_code ignored; // it may have been closed from the other side
    socket_.shutdown(Socket::shutdown_both, ignored);
    socket_.close(ignored);
}

} // namespace Korvane
