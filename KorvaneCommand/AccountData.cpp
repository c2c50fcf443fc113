#include "KorvaneCommand/AccountData.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/sync/OfflineCopies.hpp"
#include "KorvaneCore/widget/WidgetStore.hpp"

#include <filesystem>
#include <stdexcept>

namespace Korvane::AccountData {

namespace {

// The copies go while the index knows them.
void empty(LocalIndex& index, StatusDatabase& status) {
    OfflineCopies::removeAll(index, SharedContainer::offline());
    WidgetStore::clear();
    status.clearAll();
    index.reset();
}

} // namespace

FileLock claim() {
    FileLock lock(SharedContainer::directory("locks") / "queue.lock");
    if (!lock.tryLock())
        throw std::runtime_error("another korvane is at work on the account's files; stop it first");
    return lock;
}

void keepTo(const std::string& userId, LocalIndex& index, StatusDatabase& status) {
    static const std::string key = "accountUserId";
    const auto known = index.value(key);
    if (known == userId)
        return;
    if (known) {
        const auto lock = claim();
        empty(index, status);
    }
    index.setValue(userId, key);
}

void forget() {
    const auto url = SharedContainer::databaseURL();
    if (!std::filesystem::exists(url))
        return;
    LocalIndex index(url);
    StatusDatabase status(SharedContainer::statusDatabaseURL(),
                          NotificationCenter(SharedContainer::notificationFolder()));
    empty(index, status);
}

} // namespace Korvane::AccountData
