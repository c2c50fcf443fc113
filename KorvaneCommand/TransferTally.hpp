#pragma once

#include "KorvaneCore/queue/TransferOutcome.hpp"

#include <boost/describe/class.hpp>

#include <cstdint>
#include <string>

namespace Korvane {

/// What transfers have come to since it was made.
struct TransferTally {
    std::int64_t sentFiles = 0;
    std::int64_t sentBytes = 0; ///< of the files, also of those the account had the content of
    std::int64_t sentParts = 0;
    std::int64_t deduplicatedFiles = 0; ///< of those sent: nothing but their names went over the wire
    std::int64_t fetchedFiles = 0;
    std::int64_t fetchedBytes = 0; ///< as sealed
    std::int64_t failures = 0;
    std::int64_t transferMilliseconds = 0; ///< in which any transfer ran, for who adds the outcomes to say

    void add(const TransferOutcome& outcome);

    /// In a line, for people.
    [[nodiscard]] std::string text() const;
};
BOOST_DESCRIBE_STRUCT(TransferTally, (),
                      (sentFiles, sentBytes, sentParts, deduplicatedFiles, fetchedFiles, fetchedBytes,
                       failures, transferMilliseconds))

} // namespace Korvane
