#pragma once

#include "KorvaneCore/platform/Async.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>

#include <utility>

namespace Korvane {

/// Runs the coroutine on the context, with all else there is to do on it, until nothing is left. Blocks the
/// calling thread, which is the only one to run the context. Gives the coroutine's result, or throws what it
/// throws.
template <class T>
T runToEnd(asio::io_context& context, asio::awaitable<T> coroutine) {
    auto result = asio::co_spawn(context, std::move(coroutine), asio::use_future);
    context.restart();
    context.run();
    return result.get();
}

} // namespace Korvane
