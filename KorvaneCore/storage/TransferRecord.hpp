#pragma once

#include "KorvaneCore/storage/SQLRow.hpp"
#include "KorvaneCore/storage/SQLValue.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Korvane {

/// An upload or download in the persistent queue. Its dedupe key is given at insertion and not part of it.
struct TransferRecord {
    using Date = std::chrono::system_clock::time_point;

    /// The numbers are those of the database.
    enum class Kind : std::int64_t { upload = 0, download = 1 };

    enum class State : std::int64_t {
        pending = 0, ///< runnable once `nextAttempt` has passed
        running = 1, ///< taken by a worker
        failed = 2,  ///< gave up; kept for the user to retry
        done = 3,    ///< kept until pruned by age
        paused = 4,  ///< held by the user's pause
    };

    std::string id;
    Kind kind = Kind::upload;
    State state = State::pending;
    std::vector<std::uint8_t> payload; ///< the job, as the queue encodes it
    std::int64_t attempts = 0;         ///< failed runs so far
    Date nextAttempt;
    std::optional<std::string> lastError;
    std::int64_t progress = 0; ///< bytes done
    std::int64_t total = 0;    ///< bytes expected
    Date createdAt;
    std::string title; ///< shown to the user

    bool operator==(const TransferRecord&) const = default;
};

/// A row of `transfers`.
[[nodiscard]] TransferRecord transferRecord(const SQLRow& row);

[[nodiscard]] inline SQLValue sqlValue(TransferRecord::Kind kind) {
    return static_cast<std::int64_t>(kind);
}

[[nodiscard]] inline SQLValue sqlValue(TransferRecord::State state) {
    return static_cast<std::int64_t>(state);
}

} // namespace Korvane
