#include "KorvaneCommand/AccountData.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"

#include <filesystem>

namespace Korvane::AccountData {

void keepTo(const std::string& userId, LocalIndex& index, StatusDatabase& status) {
    static const std::string key = "accountUserId";
    const auto known = index.value(key);
    if (known == userId)
        return;
    if (known) {
        status.clearAll();
        index.reset();
    }
    index.setValue(userId, key);
}

void forget() {
    if (const auto index = SharedContainer::databaseURL(); std::filesystem::exists(index))
        LocalIndex(index).reset();
    if (const auto status = SharedContainer::statusDatabaseURL(); std::filesystem::exists(status))
        StatusDatabase(status, NotificationCenter(SharedContainer::notificationFolder())).clearAll();
}

} // namespace Korvane::AccountData
