#include "KorvaneCommand/Workshop.hpp"

#include "KorvaneCommand/AccountData.hpp"
#include "KorvaneCore/api/ForegroundBlobTransport.hpp"
#include "KorvaneCore/config/DeviceInfo.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/jobs/TransferRunner.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneCore/sync/ChangePull.hpp"
#include "KorvaneCore/sync/FolderNamed.hpp"

#include <fmt/ranges.h>

#include <sstream>
#include <stdexcept>

namespace Korvane {

Workshop::Workshop() {
    client.requireSession();
    masterKey_ = std::make_shared<const KRCrypto::MasterKey>(client.account.masterKey());
    const auto session = client.account.requiredSession();
    rootFolderId_ = session.user.rootFolderId;
    index = std::make_shared<LocalIndex>(SharedContainer::databaseURL());
    status = std::make_shared<StatusDatabase>(SharedContainer::statusDatabaseURL(), notifications());
    AccountData::keepTo(session.user.id, *index, *status);
    requests = std::make_shared<QueueRequests>(index, notifications());
    runner_ = std::make_shared<TimedRunner>(std::make_unique<TransferRunner>(jobContext()), systemClock());
    queue = std::make_shared<TransferQueue>(client.context.get_executor(), index, runner_, systemClock(),
                                            TransferQueue::systemJitter());
    offline = std::make_shared<OfflineCopies>(
        OfflineCopies::Parts{index, queue, requests, notifications(), SharedContainer::offline()});
    publisher_ = std::make_shared<WidgetPublisher>(index, SharedContainer::offline());
}

NotificationCenter Workshop::notifications() {
    return NotificationCenter(SharedContainer::notificationFolder());
}

JobContext Workshop::jobContext() {
    JobContext context;
    context.api = client.api;
    context.index = index;
    context.transport = std::make_shared<ForegroundBlobTransport>(client.api);
    context.masterKey = [key = masterKey_]() -> asio::awaitable<std::shared_ptr<const KRCrypto::MasterKey>> {
        co_return key;
    };
    context.deviceName = []() -> asio::awaitable<std::string> { co_return DeviceInfo::currentDeviceName(); };
    return context;
}

bool Workshop::ownQueue() {
    if (!lock_)
        lock_ = AccountData::tryClaim();
    return lock_.has_value();
}

void Workshop::leaveQueue() {
    lock_.reset();
}

asio::awaitable<void> Workshop::pull() {
    co_await pullChanges(*client.api, *index, *masterKey_);
}

asio::awaitable<void> Workshop::pullIfPossible() {
    try {
        co_await pull();
    } catch (const APIError& error) {
        if (!error.isRetryable())
            throw;
        Log::warning("sync", std::string("changes were not pulled: ") + error.what());
    }
}

asio::awaitable<void> Workshop::keepOffline() {
    const bool isRunning = lock_.has_value();
    if (!ownQueue())
        co_return;
    co_await offline->keep();
    if (!isRunning)
        leaveQueue();
}

asio::awaitable<WidgetPublisher::Publication> Workshop::publishWidgets() {
    co_return co_await offload(
        [publisher = publisher_] { return publisher->publish(std::chrono::system_clock::now()); });
}

std::optional<IndexItem> Workshop::itemAt(const std::string& path) {
    return index->item(std::string_view(path), rootFolderId_);
}

std::optional<std::string> Workshop::pathOf(const IndexItem& item) {
    const auto names = index->pathComponents(item.id, rootFolderId_);
    return names ? std::optional(fmt::format("{}", fmt::join(*names, "/"))) : std::nullopt;
}

asio::awaitable<std::string> Workshop::folderAt(std::string path) {
    const auto& masterKey = *masterKey_;
    auto folderId = rootFolderId_;
    std::istringstream names(path);
    for (std::string name; std::getline(names, name, '/');) {
        if (name.empty())
            continue;
        const auto child = index->child(folderId, name);
        if (child && !child->isFolder)
            throw std::runtime_error("\"" + name + "\" is a file of the account");
        if (child) {
            folderId = child->id;
            continue;
        }
        const auto folder = co_await folderNamed(*client.api, masterKey, name, folderId);
        if (!folder)
            throw APIError(APIError::NameConflict{});
        index->apply(*folder, masterKey);
        folderId = folder->id;
    }
    co_return folderId;
}

} // namespace Korvane
