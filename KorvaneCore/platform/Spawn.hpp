#pragma once

#include "KorvaneCore/platform/Async.hpp"

#include <boost/asio/any_io_executor.hpp>

#include <string>

namespace Korvane {

/// Starts a coroutine nobody waits for. What it throws is logged as an error under `name`, except that it was
/// cancelled.
void spawn(const asio::any_io_executor& executor, std::string name, asio::awaitable<void> coroutine);

} // namespace Korvane
