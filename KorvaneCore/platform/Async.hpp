#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace Korvane {

namespace asio = boost::asio;

} // namespace Korvane
