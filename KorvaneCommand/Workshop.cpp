#include "KorvaneCommand/Workshop.hpp"

#include "KorvaneCore/api/ForegroundBlobTransport.hpp"
#include "KorvaneCore/config/DeviceInfo.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneCore/sync/ChangePull.hpp"
#include "KorvaneCore/sync/TransferRunner.hpp"

#include <sstream>
#include <stdexcept>

namespace Korvane {

namespace {

constexpr std::chrono::seconds settleInterval{2};
constexpr std::chrono::seconds pullInterval{60};
constexpr std::chrono::seconds reconcileRetryInterval{30};

NotificationCenter notifications() {
    return NotificationCenter(SharedContainer::notificationFolder());
}

/// What another account left in the index is none of this one's: its transfers would go to the wrong place.
void keepToOneAccount(LocalIndex& index, const std::string& userId) {
    static const std::string key = "accountUserId";
    const auto known = index.value(key);
    if (known && known != userId)
        index.reset();
    if (known != userId)
        index.setValue(userId, key);
}

} // namespace

Workshop::Workshop() {
    client.requireSession();
    masterKey_ = std::make_shared<const KRCrypto::MasterKey>(client.account.masterKey());
    const auto session = client.account.requiredSession();
    rootFolderId_ = session.user.rootFolderId;
    index = std::make_shared<LocalIndex>(SharedContainer::databaseURL());
    keepToOneAccount(*index, session.user.id);
    status = std::make_shared<StatusDatabase>(SharedContainer::statusDatabaseURL(), notifications());
    requests = std::make_shared<QueueRequests>(index, notifications());
    const auto executor = client.context.get_executor();
    queue = std::make_shared<TransferQueue>(executor, index, std::make_shared<TransferRunner>(jobContext()),
                                            systemClock(), TransferQueue::systemJitter());
    engine = std::make_shared<SyncEngine>(executor, systemClock(), settleInterval,
                                          [this](SyncEngine::Root root) -> asio::awaitable<void> {
                                              for (const auto& known : SyncRoots::all(*index))
                                                  if (known.id == root.id)
                                                      co_await reconcile(known);
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

// What the account has by now spares uploads. One that fails is tried again, whether or not the root changes.
asio::awaitable<void> Workshop::reconcile(SyncRoot root) {
    std::exception_ptr failure;
    unreconciled_.erase(root.id); // what comes meanwhile counts again
    ++reconciling_;
    try {
        co_await pullIfPossible();
        co_await reconciler->reconcile(root);
    } catch (const std::exception&) {
        failure = std::current_exception();
    }
    --reconciling_;
    if (!failure)
        co_return;
    unreconciled_.insert(root.id);
    co_await engine->scheduleReconcile(root.id, reconcileRetryInterval);
    std::rethrow_exception(failure);
}

asio::awaitable<void> Workshop::settled(TransferOutcome outcome) {
    const auto again = co_await reconciler->settled(std::move(outcome));
    if (!again)
        co_return;
    unreconciled_.insert(*again);
    co_await engine->scheduleReconcile(*again, settleInterval);
}

asio::awaitable<bool> Workshop::startTransfers() {
    lock_ = FileLock(SharedContainer::directory("locks") / "queue.lock");
    if (!lock_.tryLock()) {
        requests->nudge();
        co_return false;
    }
    co_await queue->addOutcomeHandler(
        [this](TransferOutcome outcome) { return settled(std::move(outcome)); });
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
    periodicPull_.reset();
    co_await engine->stop();
    networkCost_.reset();
    if (control_)
        co_await control_->stop();
    control_.reset();
    lock_.unlock();
}

asio::awaitable<void> Workshop::startSync() {
    co_await engine->start();
    periodicPull_.emplace(client.context.get_executor(), systemClock(), pullInterval,
                          [this] { return pull(); });
    for (const auto& root : SyncRoots::all(*index)) {
        unreconciled_.insert(root.id);
        co_await engine->addRoot({root.id, root.path});
        co_await engine->scheduleReconcile(root.id, Clock::Duration::zero());
    }
}

std::optional<IndexItem> Workshop::itemAt(const std::string& path) {
    return index->item(std::string_view(path), rootFolderId_);
}

asio::awaitable<std::string> Workshop::folderAt(std::string path) {
    const auto& masterKey = *masterKey_;
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
                                              masterKey.sealMeta(KRCrypto::FolderMeta(name)),
                                              masterKey.nameBlindIndex(name)};
            const auto folder = co_await client.api->createFolder(request);
            index->apply(folder, masterKey);
            folderId = folder.id;
            continue;
        }
        folderId = child->id;
    }
    co_return folderId;
}

} // namespace Korvane
