#include "KorvaneCore/sync/ChangePull.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Spawn.hpp"

#include <utility>

namespace Korvane {

namespace {

constexpr int pageSize = 1000;

void apply(LocalIndex& index, const Change& change, const KRCrypto::MasterKey& masterKey) {
    if (change.op == ChangeOp::purge) {
        index.purge(change.entityId, change.seq);
        return;
    }
    if (!change.entity)
        return;
    if (const auto* file = std::get_if<RemoteFile>(&*change.entity))
        index.apply(*file, masterKey);
    else if (const auto* folder = std::get_if<RemoteFolder>(&*change.entity))
        index.apply(*folder, masterKey);
}

asio::awaitable<void> pullEver(std::shared_ptr<Clock> clock, Clock::Duration interval,
                               PeriodicPull::Pull pull) {
    for (;;) {
        co_await clock->sleep(interval);
        std::string failure;
        try {
            co_await pull();
        } catch (const std::exception& error) {
            failure = error.what();
        }
        if ((co_await asio::this_coro::cancellation_state).cancelled() != asio::cancellation_type::none)
            co_return;
        if (!failure.empty())
            Log::warning("sync", "changes were not pulled: " + failure);
    }
}

} // namespace

// One entry that does not open must not hide all that follow it.
asio::awaitable<void> pullChanges(APIClient& api, LocalIndex& index, const KRCrypto::MasterKey& masterKey) {
    for (bool more = true; more;) {
        const auto since = index.lastSeq();
        const auto page = co_await api.changes(since, pageSize);
        for (const auto& change : page.changes) {
            try {
                apply(index, change, masterKey);
            } catch (const KRCrypto::KRCryptoError& error) {
                Log::warning("sync", "an item was left out: " + error.description());
            }
        }
        if (!page.changes.empty()) {
            const auto latest = page.changes.back().seq;
            if (latest <= since)
                throw APIError(APIError::Decoding{"ChangesPage: seq: does not grow"});
            index.setLastSeq(latest);
        }
        more = page.hasMore && !page.changes.empty();
    }
}

PeriodicPull::PeriodicPull(const asio::any_io_executor& strand, std::shared_ptr<Clock> clock,
                           Clock::Duration interval, Pull pull) {
    spawn(strand, "sync", pullEver(std::move(clock), interval, std::move(pull)), cancellation_);
}

PeriodicPull::~PeriodicPull() {
    cancellation_->emit(asio::cancellation_type::terminal);
}

} // namespace Korvane
