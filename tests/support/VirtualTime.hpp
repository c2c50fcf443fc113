#pragma once

#include "KorvaneCore/platform/Async.hpp"
#include "tests/support/VirtualClock.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>

#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>

namespace Korvane::Testing {

/// A base of fixtures: a context on the test's thread, in virtual time. Outlives the fixture's own members.
struct VirtualTime {
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    asio::io_context context;

    /// Runs the operation to its end; other threads may take part, time does not go by.
    template <class T>
    T wait(asio::awaitable<T> operation) {
        auto result = asio::co_spawn(context, std::move(operation), asio::use_future);
        context.restart();
        while (result.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            if (context.run_one_for(std::chrono::seconds(20)) == 0)
                throw std::runtime_error("the operation does not end");
        }
        return result.get();
    }

    /// Runs all that can run without time going by.
    void settle() {
        context.restart();
        context.poll();
    }

    void await(asio::awaitable<void> operation) {
        wait(std::move(operation));
        settle();
    }

    void advance(Clock::Duration duration) {
        clock->advance(duration);
        settle();
    }
};

} // namespace Korvane::Testing
