#pragma once

#include "KorvaneService/ServiceState.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Korvane {

/// The numbered history of one user's account, as seen by one of their devices. For one transaction.
class ChangeFeed {
public:
    ChangeFeed(ServiceState& state, SQLiteDatabase& database, const Session& session)
        : state_(&state), database_(&database), session_(session) {}

    /// Draws the number of a change; numbers rise by one for each user.
    [[nodiscard]] std::int64_t nextSeq() const;

    /// `op` as on the wire; `entity` is the record as JSON, if it still exists.
    void record(std::string_view entityType, const std::string& entityId, std::string_view op,
                std::int64_t seq, const std::optional<std::string>& entity) const;

    /// The `limit` changes after `since`, as a `ChangesPage`.
    [[nodiscard]] std::string page(std::int64_t since, std::int64_t limit) const;

private:
    [[nodiscard]] std::int64_t latestSeq() const;

    ServiceState* state_;
    SQLiteDatabase* database_;
    Session session_;
};

} // namespace Korvane
