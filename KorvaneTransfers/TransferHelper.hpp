#pragma once

#include "KorvaneCore/background/MessageChannel.hpp"
#include "KorvaneCore/background/TransferMessages.hpp"
#include "KorvaneCore/http/HTTPSession.hpp"
#include "KorvaneCore/platform/FileDescriptor.hpp"

#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

/// Serves one background session until there is no client and nothing to do. All of it runs on one thread,
/// the one in run().
///
/// A task belongs to the client that ordered it. When that one goes away, the task goes on, and it and its
/// result belong to another client, or else to the next that greets. A result is kept until a client says it
/// has collected it.
class TransferHelper {
public:
    /// Most tasks at a time, those with uncollected results included.
    static constexpr std::size_t maxTasks = 10'000;

    struct Settings {
        std::string identifier;
        std::chrono::seconds idle{30}; ///< how long it stays without a client and without work
    };

    /// `listening` is a socket by LocalSocket::listen().
    TransferHelper(Settings settings, FileDescriptor listening, std::shared_ptr<HTTPSession> session);
    TransferHelper(const TransferHelper&) = delete;
    TransferHelper& operator=(const TransferHelper&) = delete;
    ~TransferHelper() = default;

    /// Returns when idle. What is uncollected then is left for the next helper. Throws FileError.
    void run();

private:
    using Channel = std::shared_ptr<MessageChannel>;

    struct Task {
        Channel owner;        ///< none while its client is gone
        bool adopted = false; ///< its owner did not order it
        std::optional<TransferMessages::TaskResult> result;
        asio::cancellation_signal cancellation;
    };

    asio::awaitable<void> accept();
    asio::awaitable<void> serve(FileDescriptor connection);
    asio::awaitable<void> converse(Channel client);
    asio::awaitable<void> waitUntilIdle();

    void greet(const Channel& client, const TransferMessages::Hello& hello);
    void adopt(const Channel& client);
    void leave(const Channel& client);
    void take(const Channel& client, const TransferMessages::FromClient& message);
    void start(const Channel& client, TransferMessages::TaskOrder order);
    void cancel(std::int64_t number);
    void collect(std::int64_t number);
    void finish(std::int64_t number, TransferMessages::TaskResult result);
    [[nodiscard]] bool isIdle() const;
    void touch();

    const Settings settings_;
    const std::shared_ptr<HTTPSession> session_;
    std::size_t connections_ = 0;
    std::size_t running_ = 0;
    asio::io_context context_{1};
    asio::local::stream_protocol::acceptor acceptor_;
    asio::steady_timer activity_;
    std::vector<Channel> clients_; ///< that have greeted
    std::map<std::int64_t, Task> tasks_;
    std::int64_t greeted_ = 0;
};

} // namespace Korvane
