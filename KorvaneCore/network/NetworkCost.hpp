#pragma once

#include <functional>
#include <memory>

namespace Korvane {

/// Follows whether the network counts as metered, as the system's network manager says on the system bus. It
/// does not while there is no bus, or nobody there to say so.
class NetworkCost {
public:
    /// Calls the handler with what holds now and after each change, on a thread of this object; the handler
    /// must not throw, nor destroy this object.
    explicit NetworkCost(std::function<void(bool isMetered)> handler);
    NetworkCost(const NetworkCost&) = delete;
    NetworkCost& operator=(const NetworkCost&) = delete;
    ~NetworkCost(); ///< once destroyed, the handler neither runs nor will

private:
    class Watch;
    std::unique_ptr<Watch> watch_;
};

} // namespace Korvane
