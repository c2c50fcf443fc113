#include "KorvaneCore/jobs/Turns.hpp"

#include <boost/asio/redirect_error.hpp>
#include <boost/system/system_error.hpp>

#include <utility>

namespace Korvane {

asio::awaitable<std::unique_ptr<Turns::Turn>> Turns::take(std::string name) {
    for (auto found = taken_.find(name); found != taken_.end(); found = taken_.find(name)) {
        const auto end = found->second;
        boost::system::error_code woken;
        co_await end->async_wait(asio::redirect_error(asio::use_awaitable, woken));
        const auto state = co_await asio::this_coro::cancellation_state;
        if (state.cancelled() != asio::cancellation_type::none)
            throw boost::system::system_error(asio::error::operation_aborted);
    }
    const auto executor = co_await asio::this_coro::executor;
    taken_.emplace(name,
                   std::make_shared<asio::steady_timer>(executor, asio::steady_timer::time_point::max()));
    co_return std::make_unique<Turn>(*this, std::move(name));
}

void Turns::end(const std::string& name) {
    taken_.extract(name).mapped()->cancel();
}

} // namespace Korvane
