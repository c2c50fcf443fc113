#pragma once

#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/platform/Mutex.hpp"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace Korvane {

/// What goes wrong with one call.
struct Fault {
    struct Answer { ///< this instead of the work
        unsigned status = 500;
        std::string body;
        std::vector<std::pair<std::string, std::string>> headers;
    };

    struct DropBefore {}; ///< the connection ends, nothing was done

    struct DropAfter {}; ///< the work is done, the connection ends without an answer

    struct Truncate { ///< the connection ends after so many bytes of the body
        std::size_t bytes = 0;
    };

    struct Garbage { ///< the work is done, the body is this
        std::string body;
    };

    struct Hold {}; ///< the work waits for Faults::release()

    using Kind = std::variant<Answer, DropBefore, DropAfter, Truncate, Garbage, Hold>;
};

/// The script of what goes wrong, and the count of what was called. Callable from any thread.
///
/// A route is named by method and pattern: "POST /v1/uploads", "PUT /storage/parts/{upload}/{part}".
class Faults {
public:
    /// From now on the `nth` next call of the route (from 1) meets this fault; `times` calls in a row do.
    void add(const std::string& route, Fault::Kind kind, int nth = 1, int times = 1) KR_EXCLUDES(mutex_);

    /// Forgets what has not happened yet.
    void clear() KR_EXCLUDES(mutex_);

    /// Calls of the route so far, with and without faults.
    [[nodiscard]] int calls(const std::string& route) const KR_EXCLUDES(mutex_);

    /// Bodies received by the route so far, in bytes.
    [[nodiscard]] std::uint64_t bytesReceived(const std::string& route) const KR_EXCLUDES(mutex_);

    /// For the server: counts a call and gives its fault.
    std::optional<Fault::Kind> next(const std::string& route, std::size_t bytes) KR_EXCLUDES(mutex_);

    /// How many calls are held now; release() lets them all go on.
    [[nodiscard]] int held() const KR_EXCLUDES(mutex_);
    void release() KR_EXCLUDES(mutex_);

    /// For the server: suspends until the next release().
    asio::awaitable<void> hold() KR_EXCLUDES(mutex_);

private:
    struct Planned {
        int first = 0; ///< number of the call, from 1
        int last = 0;
        Fault::Kind kind;
    };

    struct Counts {
        int calls = 0;
        std::uint64_t bytes = 0;
    };

    struct Gate;

    mutable Mutex mutex_;
    std::map<std::string, std::vector<Planned>> planned_ KR_GUARDED_BY(mutex_);
    std::map<std::string, Counts> counts_ KR_GUARDED_BY(mutex_);
    /// Each belongs to the coroutine that waits, so a connection that ends takes its gate along.
    std::vector<std::weak_ptr<Gate>> held_ KR_GUARDED_BY(mutex_);
};

} // namespace Korvane
