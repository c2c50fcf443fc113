#pragma once

#include <boost/asio/post.hpp>

#include <atomic>
#include <memory>
#include <utility>

namespace Korvane {

/// Posts `handler` from a thread that `executor` knows nothing of. When the handler runs, nothing of the
/// executor's is left on this thread, so its context may end right after: a plain post still holds a copy of
/// the executor for a moment, and the last copy of a strand needs its context.
template <class Executor, class Handler>
void handOver(Executor&& executor, Handler handler) {
    auto left = std::make_shared<std::atomic_flag>();
    {
        const auto target = std::forward<Executor>(executor);
        boost::asio::post(target, [left, handler = std::move(handler)]() mutable {
            left->wait(false); // the other thread is past its post, or about to be
            handler();
        });
    }
    left->test_and_set();
    left->notify_one();
}

} // namespace Korvane
