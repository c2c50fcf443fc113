#pragma once

#include "KRCrypto/MasterKey.hpp"
#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"

namespace Korvane {

/// Brings the local index up to the account's change feed, from where it was left. All three outlive the
/// call. Throws APIError, SQLiteError; an entry whose metadata does not open is logged and left out.
asio::awaitable<void> pullChanges(APIClient& api, LocalIndex& index, const KRCrypto::MasterKey& masterKey);

} // namespace Korvane
