#pragma once

#include "KorvaneCore/platform/Async.hpp"

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/cancellation_signal.hpp>

#include <memory>
#include <string>

namespace Korvane {

/// Starts a coroutine nobody waits for. What it throws is logged as an error under `name`, except that it was
/// cancelled.
void spawn(const asio::any_io_executor& executor, std::string name, asio::awaitable<void> coroutine);

/// The same with a signal that cancels the coroutine. It is emitted on `executor`, a strand, only.
void spawn(const asio::any_io_executor& executor, std::string name, asio::awaitable<void> coroutine,
           std::shared_ptr<asio::cancellation_signal> cancellation);

} // namespace Korvane
