#include "KorvaneCommand/AccountData.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/publisher/WidgetPublisher.hpp"
#include "KorvaneCore/sync/OfflineCopies.hpp"
#include "KorvaneCore/widget/WidgetStore.hpp"

#include <chrono>

namespace Korvane::AccountData {

std::filesystem::path queueLock() {
    return SharedContainer::directory("locks") / "queue.lock";
}

void empty(const std::shared_ptr<LocalIndex>& index, StatusDatabase& status) {
    const auto copies = SharedContainer::offline();
    OfflineCopies::removeAll(*index, copies); // before it is forgotten where they are
    status.clearAll();
    index->reset();
    if (WidgetStore::load()) // else the widgets show nothing of the account
        WidgetPublisher(index, copies).publish(std::chrono::system_clock::now());
}

void emptyAll() {
    const auto index = SharedContainer::databaseURL();
    const auto status = SharedContainer::statusDatabaseURL();
    if (!std::filesystem::exists(index) && !std::filesystem::exists(status))
        return;
    StatusDatabase states(status, NotificationCenter(SharedContainer::notificationFolder()));
    empty(std::make_shared<LocalIndex>(index), states);
}

} // namespace Korvane::AccountData
