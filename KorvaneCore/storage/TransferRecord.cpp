#include "KorvaneCore/storage/TransferRecord.hpp"

namespace Korvane {

TransferRecord transferRecord(const SQLRow& row) {
    return {
        .id = row.string("id").value_or(""),
        .kind = TransferRecord::Kind{row.intValue("kind").value_or(0)},
        .state = TransferRecord::State{row.intValue("state").value_or(0)},
        .payload = row.data("payload").value_or(std::vector<std::uint8_t>()),
        .attempts = row.intValue("attempts").value_or(0),
        .nextAttempt = row.date("next_attempt").value_or(TransferRecord::Date()),
        .lastError = row.string("last_error"),
        .progress = row.intValue("progress").value_or(0),
        .total = row.intValue("total").value_or(0),
        .createdAt = row.date("created_at").value_or(TransferRecord::Date()),
        .title = row.string("title").value_or(""),
    };
}

} // namespace Korvane
