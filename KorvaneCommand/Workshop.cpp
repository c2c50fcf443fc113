#include "KorvaneCommand/Workshop.hpp"

#include "KorvaneCore/api/ForegroundBlobTransport.hpp"
#include "KorvaneCore/config/DeviceInfo.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneCore/sync/ChangePull.hpp"
#include "KorvaneCore/sync/TransferRunner.hpp"

#include <fmt/ranges.h>

#include <sstream>
#include <stdexcept>

namespace Korvane {

namespace {

constexpr std::chrono::seconds settleInterval{2};

NotificationCenter notifications() {
    return NotificationCenter(SharedContainer::notificationFolder());
}

/// What another account left in the index is none of this one's: its transfers would go to the wrong place.
/// Its offline copies go before they are forgotten.
void keepToOneAccount(LocalIndex& index, OfflineCopies& offline, const std::string& userId) {
    static const std::string key = "accountUserId";
    const auto known = index.value(key);
    if (known && known != userId) {
        offline.removeAll();
        index.reset();
    }
    if (known != userId)
        index.setValue(userId, key);
}

} // namespace

Workshop::Workshop() {
    client.requireSession();
    masterKey_ = std::make_shared<const KRCrypto::MasterKey>(client.account.masterKey());
    rootFolderId_ = client.account.session()->user.rootFolderId;
    index = std::make_shared<LocalIndex>(SharedContainer::databaseURL());
    status = std::make_shared<StatusDatabase>(SharedContainer::statusDatabaseURL(), notifications());
    requests = std::make_shared<QueueRequests>(index, notifications());
    const auto executor = client.context.get_executor();
    queue = std::make_shared<TransferQueue>(executor, index, std::make_shared<TransferRunner>(jobContext()),
                                            systemClock(), TransferQueue::systemJitter());
    offline = std::make_shared<OfflineCopies>(
        OfflineCopies::Parts{index, queue, requests, notifications(), SharedContainer::offline()});
    keepToOneAccount(*index, *offline, client.account.session()->user.id);
    publisher_ = std::make_shared<WidgetPublisher>(index, SharedContainer::offline());
    widgets_ = std::make_shared<WidgetSchedule>(executor, systemClock(), notifications(),
                                                [this]() -> asio::awaitable<void> {
                                                    co_await keepOffline();
                                                    co_await publishWidgets();
                                                });
    engine = std::make_shared<SyncEngine>(executor, systemClock(), settleInterval,
                                          [this](SyncEngine::Root root) -> asio::awaitable<void> {
                                              for (const auto& known : SyncRoots::all(*index))
                                                  if (known.id == root.id) {
                                                      co_await reconciler->reconcile(known);
                                                      ++reconciles_;
                                                      widgets_->changed();
                                                  }
                                          });
    reconciler = std::make_shared<RootReconciler>(
        RootReconciler::Parts{jobContext(), queue, status, engine->ownWrites()});
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

asio::awaitable<void> Workshop::pull() {
    co_await pullChanges(*client.api, *index, *masterKey_);
    widgets_->changed();
}

bool Workshop::ownQueue() {
    if (lock_.fd() >= 0)
        return true;
    lock_ = FileLock(SharedContainer::directory("locks") / "queue.lock");
    const bool isOwn = lock_.tryLock();
    if (!isOwn)
        lock_.unlock();
    return isOwn;
}

asio::awaitable<void> Workshop::keepOffline() {
    const bool isRunning = lock_.fd() >= 0;
    if (!ownQueue())
        co_return;
    co_await offline->keep();
    if (!isRunning)
        lock_.unlock();
}

asio::awaitable<WidgetPublisher::Publication> Workshop::publishWidgets() {
    co_return co_await offload(
        [publisher = publisher_] { return publisher->publish(std::chrono::system_clock::now()); });
}

asio::awaitable<bool> Workshop::startTransfers() {
    if (!ownQueue()) {
        requests->nudge();
        co_return false;
    }
    co_await queue->addOutcomeHandler([this](TransferOutcome outcome) -> asio::awaitable<void> {
        const auto* dropped = outcome.as<TransferOutcome::Dropped>();
        const auto* origin =
            dropped != nullptr && dropped->origin ? dropped->origin->as<TransferOrigin::Sync>() : nullptr;
        const auto again = origin != nullptr ? std::optional(origin->rootId) : std::nullopt;
        co_await offline->settled(outcome);
        co_await reconciler->settled(std::move(outcome));
        widgets_->changed();
        if (again)
            co_await engine->scheduleReconcile(*again, settleInterval);
    });
    co_await queue->setOwnWriteHandler(
        [this](std::filesystem::path path, LocalStat stat) -> asio::awaitable<void> {
            engine->ownWrites()->registerWrite(path.string(), stat);
            co_return;
        });
    control_ =
        std::make_unique<QueueControl>(client.context.get_executor(), queue, requests, notifications());
    co_await control_->start();
    networkCost_ =
        std::make_unique<NetworkCost>([this](bool isMetered) { control_->setNetworkMetered(isMetered); });
    co_return true;
}

asio::awaitable<void> Workshop::stopTransfers() {
    co_await widgets_->stop();
    co_await engine->stop();
    networkCost_.reset();
    if (control_)
        co_await control_->stop();
    control_.reset();
    lock_.unlock();
}

asio::awaitable<void> Workshop::startSync() {
    co_await widgets_->start();
    co_await engine->start();
    const auto roots = SyncRoots::all(*index);
    reconciles_ = roots.empty() ? 1 : 1 - static_cast<int>(roots.size());
    for (const auto& root : roots) {
        co_await engine->addRoot({root.id, root.path});
        co_await engine->scheduleReconcile(root.id, Clock::Duration::zero());
    }
}

std::optional<IndexItem> Workshop::itemAt(const std::string& path) {
    return index->item(std::string_view(path), rootFolderId_);
}

std::optional<std::string> Workshop::pathOf(const IndexItem& item) {
    const auto names = index->pathComponents(item.id, rootFolderId_);
    return names ? std::optional(fmt::format("{}", fmt::join(*names, "/"))) : std::nullopt;
}

asio::awaitable<std::string> Workshop::folderAt(std::string path) {
    auto folderId = rootFolderId_;
    std::istringstream names(path);
    for (std::string name; std::getline(names, name, '/');) {
        if (name.empty())
            continue;
        auto child = index->child(folderId, name);
        if (child && !child->isFolder)
            throw std::runtime_error("\"" + name + "\" is a file of the account");
        if (!child) {
            const CreateFolderRequest request{newUUID(), folderId,
                                              masterKey_->sealMeta(KRCrypto::FolderMeta(name)),
                                              masterKey_->nameBlindIndex(name)};
            index->apply(co_await client.api->createFolder(request), *masterKey_);
            child = index->item(*request.id);
        }
        folderId = child->id;
    }
    co_return folderId;
}

} // namespace Korvane
