#include "KorvaneCommand/AccountData.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/platform/Files.hpp"
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

std::optional<FileLock> tryClaim() {
    const auto file = SharedContainer::url() / lockFile;
    createDirectories(file.parent_path());
    FileLock lock(file);
    return lock.tryLock() ? std::optional(std::move(lock)) : std::nullopt;
}

FileLock claim() {
    auto lock = tryClaim();
    if (!lock)
        throw std::runtime_error("another korvane is at work on the account's files; stop it first");
    return *std::move(lock);
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
