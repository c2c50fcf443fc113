#pragma once

#include "KorvaneCore/platform/Async.hpp"
#include "KorvaneCore/platform/HandOver.hpp"

#include <boost/asio/associated_executor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

#include <exception>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

namespace Korvane {

/// The process's few threads for work that blocks: hashing, encrypting, files, key derivation, the keychain.
[[nodiscard]] asio::thread_pool& workers();

/// Runs `work` on one of the workers and brings its result, or what it throws, back to the caller's executor.
/// Work that began is never interrupted: a cancelled caller still waits for its end, and the caller's
/// context must not be destroyed before.
template <class Work, class Result = std::invoke_result_t<Work>>
asio::awaitable<Result> offload(Work work) {
    constexpr bool isVoid = std::is_void_v<Result>;

    struct Outcome {
        std::optional<std::conditional_t<isVoid, std::monostate, Result>> result;
        std::exception_ptr error;
    };

    const auto outcome = co_await asio::async_initiate<const asio::use_awaitable_t<>,
                                                       void(std::exception_ptr, std::shared_ptr<Outcome>)>(
        [](auto handler, Work task) {
            auto home = asio::get_associated_executor(handler);
            asio::post(workers(), [handler = std::move(handler), task = std::move(task),
                                   home = std::move(home)]() mutable {
                auto done = std::make_shared<Outcome>();
                try {
                    if constexpr (isVoid)
                        task();
                    else
                        done->result.emplace(task());
                } catch (...) {
                    done->error = std::current_exception();
                }
                // The task moves on too: what it holds must not end on this thread.
                handOver(std::move(home), [handler = std::move(handler), task = std::move(task),
                                           done = std::move(done)]() mutable {
                    static_cast<void>(task);
                    auto error = done->error;
                    handler(std::move(error), std::move(done));
                });
            });
        },
        asio::use_awaitable, std::move(work));
    if constexpr (!isVoid)
        // NOLINTNEXTLINE(bugprone-unchecked-optional-access): an error would have been thrown
        co_return std::move(*outcome->result);
}

} // namespace Korvane
