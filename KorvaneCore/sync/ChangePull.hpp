#pragma once

#include "KRCrypto/MasterKey.hpp"
#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/platform/Clock.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"

#include <boost/asio/cancellation_signal.hpp>

#include <functional>
#include <memory>

namespace Korvane {

/// Brings the local index up to the account's change feed, from where it was left. All three outlive the
/// call. Throws APIError, SQLiteError; an entry whose metadata does not open is logged and left out.
asio::awaitable<void> pullChanges(APIClient& api, LocalIndex& index, const KRCrypto::MasterKey& masterKey);

/// Pulls again and again, until it is destroyed. Everything runs on one strand, the destructor too.
class PeriodicPull {
public:
    using Pull = std::function<asio::awaitable<void>()>;

    /// The first pull comes after one interval. What one throws is logged, and the next one comes all the
    /// same. `pull` may be cancelled; what it uses must live until the executor has run on.
    PeriodicPull(const asio::any_io_executor& strand, std::shared_ptr<Clock> clock, Clock::Duration interval,
                 Pull pull);
    PeriodicPull(const PeriodicPull&) = delete;
    PeriodicPull& operator=(const PeriodicPull&) = delete;
    ~PeriodicPull();

private:
    std::shared_ptr<asio::cancellation_signal> cancellation_ = std::make_shared<asio::cancellation_signal>();
};

} // namespace Korvane
