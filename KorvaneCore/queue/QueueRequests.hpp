#pragma once

#include "KorvaneCore/platform/NotificationCenter.hpp"

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Korvane {

class LocalIndex;

/// What people ask of the transfer queue from any process. Requests are kept in the local index, so they
/// reach a queue that runs (see QueueControl) at once and one that does not when it next starts.
///
/// Callable from any thread. Throws SQLiteError when the index refuses, and FileError when the request was
/// stored but could not be announced.
class QueueRequests {
public:
    /// Whether the network counts as metered: as the system says, or as the user does.
    enum class Metered : std::uint8_t { automatic, yes, no };

    QueueRequests(std::shared_ptr<LocalIndex> index, NotificationCenter notifications);

    void setPaused(bool paused);
    void setMetered(Metered metered);
    void retryFailed();
    void nudge();

    /// Asks that the records be discarded. They stay listed until the queue has done so.
    void cancel(const std::vector<std::string>& ids);

    [[nodiscard]] bool isPaused();
    [[nodiscard]] Metered metered();
    [[nodiscard]] std::set<std::string> cancelled();

    /// The queue has discarded the record.
    void forgetCancelled(const std::string& id);

    /// Another text after each request.
    [[nodiscard]] std::string latest();

private:
    void announce();

    std::shared_ptr<LocalIndex> index_;
    NotificationCenter notifications_;
};

} // namespace Korvane
