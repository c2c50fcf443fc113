#pragma once

#include "KorvaneCore/platform/Async.hpp"

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>

#include <exception>
#include <memory>
#include <utility>

namespace Korvane {

/// The serial executor of an object whose operations suspend.
using Strand = asio::strand<asio::any_io_executor>;

namespace Detail {

template <class T>
struct OutcomeSignature {
    using Type = void(std::exception_ptr, T);
};

template <>
struct OutcomeSignature<void> {
    using Type = void(std::exception_ptr);
};

} // namespace Detail

/// Runs the coroutine that `operation()` makes on `strand` and brings its result back to the caller's
/// executor. A cancellation of the caller is emitted on the strand, so it never meets the operation half-way:
/// awaiting co_spawn across executors does, in Boost 1.81. T must be default-constructible. `strand` must
/// have threads to run on for as long as the caller waits.
template <class T, class Operation>
asio::awaitable<T> on(Strand strand, Operation operation) {
    return asio::async_initiate<const asio::use_awaitable_t<>, typename Detail::OutcomeSignature<T>::Type>(
        [](auto handler, const Strand& target, Operation start) {
            auto slot = asio::get_associated_cancellation_slot(handler);
            const auto home = asio::get_associated_executor(handler);
            auto signal = std::make_shared<asio::cancellation_signal>();
            if (slot.is_connected())
                slot.assign([signal, target](asio::cancellation_type type) {
                    asio::post(target, [signal, type] { signal->emit(type); });
                });
            asio::co_spawn(target, std::move(start),
                           asio::bind_cancellation_slot(signal->slot(), [handler = std::move(handler), home,
                                                                         signal](std::exception_ptr error,
                                                                                 auto... value) mutable {
                               asio::dispatch(home, [handler = std::move(handler), error = std::move(error),
                                                     ... value = std::move(value)]() mutable {
                                   handler(std::move(error), std::move(value)...);
                               });
                           }));
        },
        asio::use_awaitable, std::move(strand), std::move(operation));
}

} // namespace Korvane
