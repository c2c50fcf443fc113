#pragma once

#include "KorvaneCore/api/records/Account.hpp"

#include <boost/describe/class.hpp>

#include <optional>

namespace Korvane {

/// Who is signed in on this device. Holds no secret.
struct AccountSession {
    User user;
    Device device;

    bool operator==(const AccountSession&) const = default;
};
BOOST_DESCRIBE_STRUCT(AccountSession, (), (user, device))

/// The session as it outlives the process: "account.json" in the container, 0600, replaced whole. These throw
/// FileError; a damaged file reads as none, since signing in again replaces it.
namespace StoredSession {

[[nodiscard]] std::optional<AccountSession> read();
void write(const AccountSession& session);
void remove();

} // namespace StoredSession

} // namespace Korvane
