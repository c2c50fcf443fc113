#pragma once

#include "KorvaneCore/platform/Async.hpp"

#include <boost/asio/associated_executor.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

#include <exception>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace Korvane {

/// The process's few threads for work that blocks: hashing, encrypting, files, key derivation, the keychain.
[[nodiscard]] asio::thread_pool& workers();

/// Runs `work` on one of the workers and brings its result, or what it throws, back to the caller's executor.
/// Work that began is never interrupted: a cancelled caller still waits for its end. The result must not be
/// void.
template <class Work, class Result = std::invoke_result_t<Work>>
asio::awaitable<Result> offload(Work work) {
    struct Outcome {
        std::optional<Result> result;
        std::exception_ptr error;
    };

    const auto outcome = co_await asio::async_initiate<const asio::use_awaitable_t<>,
                                                       void(std::exception_ptr, std::shared_ptr<Outcome>)>(
        [](auto handler, Work task) {
            auto home = asio::make_work_guard(asio::get_associated_executor(handler));
            asio::post(workers(), [handler = std::move(handler), task = std::move(task),
                                   home = std::move(home)]() mutable {
                auto done = std::make_shared<Outcome>();
                try {
                    done->result.emplace(task());
                } catch (...) {
                    done->error = std::current_exception();
                }
                // The guard moves on too: nothing of the caller's may end on this thread.
                const auto executor = home.get_executor();
                asio::dispatch(executor, [handler = std::move(handler), home = std::move(home),
                                          done = std::move(done)]() mutable {
                    auto error = done->error;
                    handler(std::move(error), std::move(done));
                });
            });
        },
        asio::use_awaitable, std::move(work));
    co_return std::move(*outcome->result);
}

} // namespace Korvane
