#include "KorvaneCore/platform/Offload.hpp"

#include <algorithm>
#include <thread>

namespace Korvane {

asio::thread_pool& workers() {
    static asio::thread_pool pool(std::clamp(std::thread::hardware_concurrency(), 2U, 8U));
    return pool;
}

} // namespace Korvane
