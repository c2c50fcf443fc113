#include "KorvaneCore/background/MessageChannel.hpp"
#include "KorvaneCore/background/TransferMessages.hpp"
#include "KorvaneCore/json/KRJSONRecords.hpp"
#include "fuzz/KRCrypto/Fuzzing.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/system/system_error.hpp>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>

using namespace Korvane;
using namespace Korvane::TransferMessages;
using KRCrypto::Fuzzing::require;

namespace {

constexpr std::size_t socketBuffer = 64 << 10; ///< so much is taken at once

/// What decodes is written as a text that decodes to the same text again.
template <class Message>
void decode(std::string_view text) {
    try {
        const auto written = KRJSON::write(KRJSON::read<Message>(text));
        require(KRJSON::write(KRJSON::read<Message>(written)) == written);
    } catch (const JSONError&) {
        return;
    }
}

/// Reads messages until there are no more; every one must fit the limit.
asio::awaitable<void> receiveAll(std::shared_ptr<MessageChannel> channel) {
    try {
        for (;;) {
            const auto text = co_await channel->receive();
            require(text.size() <= MessageChannel::maxLength);
            decode<FromClient>(text);
            decode<FromHelper>(text);
            decode<Kept>(text);
        }
    } catch (const MessageTooLong&) {
    } catch (const boost::system::system_error&) { // the end
    }
}

} // namespace

// Any bytes from the other side of a connection: nothing but these errors may come out.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::array<int, 2> ends{};
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0);
    asio::io_context context;
    asio::co_spawn(
        context,
        receiveAll(std::make_shared<MessageChannel>(context.get_executor(), FileDescriptor(ends[0]))),
        [](const std::exception_ptr& error) { require(!error); });
    size = std::min(size, socketBuffer);
    require(::send(ends[1], data, size, MSG_DONTWAIT) == static_cast<ssize_t>(size));
    ::close(ends[1]);
    context.run();
    return 0;
}
