#pragma once

#include "KorvaneCore/platform/Async.hpp"
#include "KorvaneCore/platform/NotificationCenter.hpp"

#include <boost/asio/any_io_executor.hpp>

#include <memory>

namespace Korvane {

class QueueRequests;
class TransferQueue;

/// The owner's side of a queue that runs: starts it as people left it, does what they ask from other
/// processes, and tells those that it has changed. It sets the queue's change handler.
///
/// The operations may be awaited from any executor. The executor given must run until stop() has been
/// awaited.
class QueueControl {
public:
    QueueControl(const asio::any_io_executor& executor, std::shared_ptr<TransferQueue> queue,
                 std::shared_ptr<QueueRequests> requests, NotificationCenter notifications);
    QueueControl(const QueueControl&) = delete;
    QueueControl& operator=(const QueueControl&) = delete;
    ~QueueControl();

    /// Does what was asked while no queue ran, then starts the queue. Throws SQLiteError, and FileError when
    /// posts cannot be observed. Called once.
    asio::awaitable<void> start();

    /// Stops the queue and waits until its runs have ended.
    asio::awaitable<void> stop();

    /// What the system says of the network; counts unless the user has said. From any thread.
    void setNetworkMetered(bool metered);

private:
    class State;
    std::shared_ptr<State> state_;
};

} // namespace Korvane
