#pragma once

#include "KorvaneCore/platform/Async.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/deferred.hpp>
#include <boost/asio/experimental/parallel_group.hpp>

#include <exception>
#include <utility>

namespace Korvane {

/// Runs two coroutines side by side on the caller's executor, a strand. When one throws, the other is
/// cancelled; once both have ended, what was thrown first goes on.
inline asio::awaitable<void> both(asio::awaitable<void> first, asio::awaitable<void> second) {
    const auto executor = co_await asio::this_coro::executor;
    const auto [order, firstError, secondError] =
        co_await asio::experimental::make_parallel_group(
            asio::co_spawn(executor, std::move(first), asio::deferred),
            asio::co_spawn(executor, std::move(second), asio::deferred))
            .async_wait(asio::experimental::wait_for_one_error(), asio::use_awaitable);
    const auto& earlier = order[0] == 0 ? firstError : secondError;
    const auto& later = order[0] == 0 ? secondError : firstError;
    if (earlier)
        std::rethrow_exception(earlier);
    if (later)
        std::rethrow_exception(later);
}

} // namespace Korvane
