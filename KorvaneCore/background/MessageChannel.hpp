#pragma once

#include "KorvaneCore/platform/Async.hpp"
#include "KorvaneCore/platform/FileDescriptor.hpp"

#include <boost/asio/local/stream_protocol.hpp>

#include <cstdint>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>

namespace Korvane {

/// A message longer than any that is sent.
class MessageTooLong : public std::runtime_error {
public:
    MessageTooLong() : std::runtime_error("a message is too long") {}
};

/// Texts over a local connection, each after its length (four bytes, least significant first). Used on the
/// socket's executor only, which runs one thing at a time.
class MessageChannel : public std::enable_shared_from_this<MessageChannel> {
public:
    using Socket = asio::local::stream_protocol::socket;

    static constexpr std::uint32_t maxLength = 1 << 20;

    /// Over a connection made by LocalSocket.
    MessageChannel(const asio::any_io_executor& executor, FileDescriptor connection);

    /// The next text. Throws MessageTooLong, after which nothing more can be read, and
    /// boost::system::system_error at the end of the connection. One caller at a time.
    asio::awaitable<std::string> receive();

    /// Sends after all that was sent before; never waits. What cannot be sent any more is dropped: receive()
    /// tells that the connection has ended.
    void send(const std::string& text);

    /// Sends what is waiting, then closes.
    void finish();

    /// Ends the connection now.
    void close();

    /// Gives the connection up, for another channel; nothing may be on its way.
    [[nodiscard]] FileDescriptor release() { return FileDescriptor(socket_.release()); }

private:
    asio::awaitable<void> write();

    Socket socket_;
    std::deque<std::string> waiting_;
    bool writing_ = false;
    bool finishing_ = false;
};

} // namespace Korvane
