#include "KorvaneCore/platform/Spawn.hpp"

#include "KorvaneCore/platform/Log.hpp"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/error.hpp>
#include <boost/system/system_error.hpp>

namespace Korvane {

namespace {

void report(const std::string& name, const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const boost::system::system_error& failure) {
        if (failure.code() != asio::error::operation_aborted)
            Log::error(name, failure.what());
    } catch (const std::exception& failure) {
        Log::error(name, failure.what());
    }
}

} // namespace

void spawn(const asio::any_io_executor& executor, std::string name, asio::awaitable<void> coroutine) {
    asio::co_spawn(executor, std::move(coroutine), [name = std::move(name)](const std::exception_ptr& error) {
        if (error)
            report(name, error);
    });
}

void spawn(const asio::any_io_executor& executor, std::string name, asio::awaitable<void> coroutine,
           std::shared_ptr<asio::cancellation_signal> cancellation) {
    const auto slot = cancellation->slot();
    // The signal lives until the coroutine has ended.
    asio::co_spawn(
        executor, std::move(coroutine),
        asio::bind_cancellation_slot(slot, [name = std::move(name), cancellation = std::move(cancellation)](
                                               const std::exception_ptr& error) {
            if (error)
                report(name, error);
        }));
}

} // namespace Korvane
