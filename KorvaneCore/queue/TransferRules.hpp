#pragma once

#include "KorvaneCore/api/APIError.hpp"
#include "KorvaneCore/queue/TransferOrigin.hpp"
#include "KorvaneCore/storage/TransferRecord.hpp"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// The transfer queue's decisions, without I/O.
namespace Korvane::TransferRules {

/// Why a run did not succeed, and what follows from it.
struct RunFailure {
    enum class Verdict : std::uint8_t { dropped, cancelled, retry, failed };

    Verdict verdict = Verdict::failed;
    std::string text; ///< what users are shown
    std::optional<APIError> apiError;
    std::optional<double> exactDelay; ///< seconds, instead of the back-off
    double minimumDelay = 0;          ///< seconds
};

/// `cancelled`: whether the run had been cancelled before it threw.
[[nodiscard]] RunFailure runFailure(const std::exception_ptr& error, bool cancelled);

/// Seconds to wait after the attempt with that number, from 1: doubling from 4 up to 300, the whole times a
/// factor from 0.7 to 1.0 that grows with `jitter`, from 0 to 1; or what the failure asks for. Never
/// negative, at most ten years.
[[nodiscard]] double retryDelay(const RunFailure& failure, std::int64_t attempts, double jitter);

/// Seconds to sleep until the next look at the records: from 1 to 300, 60 when nothing is pending.
[[nodiscard]] double wakeUpDelay(TransferRecord::Date now,
                                 const std::optional<TransferRecord::Date>& nextAttempt);

struct Candidate {
    std::string id;
    std::optional<TransferOrigin> origin; ///< none when the stored job cannot be read
};

struct Situation {
    std::size_t freeSlots = 0;
    bool expensiveNetwork = false;
    std::function<bool(const std::string& id)> isTaken; ///< runs already, or is being discarded
    std::vector<TransferOrigin> running;                ///< the origins of what runs
};

struct Selection {
    std::vector<Candidate> chosen;
    std::size_t seen = 0;     ///< how many of the records were looked at until the slots were taken
    std::size_t heldBack = 0; ///< how many of the first records wait for another network, and nothing else
};

/// Which of the records, oldest first, may start now.
[[nodiscard]] Selection candidates(const std::vector<TransferRecord>& records, const Situation& situation);

} // namespace Korvane::TransferRules
