#include "KorvaneCore/sync/ChangePull.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/platform/Log.hpp"

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

} // namespace

// One entry that does not open must not hide all that follow it.
asio::awaitable<void> pullChanges(APIClient& api, LocalIndex& index, const KRCrypto::MasterKey& masterKey) {
    for (bool more = true; more;) {
        const auto page = co_await api.changes(index.lastSeq(), pageSize);
        for (const auto& change : page.changes) {
            try {
                apply(index, change, masterKey);
            } catch (const KRCrypto::KRCryptoError& error) {
                Log::warning("sync", "an item was left out: " + error.description());
            }
        }
        if (!page.changes.empty())
            index.setLastSeq(page.changes.back().seq);
        more = page.hasMore && !page.changes.empty();
    }
}

} // namespace Korvane
