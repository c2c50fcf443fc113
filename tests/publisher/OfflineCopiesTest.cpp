#include "KorvaneCore/sync/OfflineCopies.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/queue/QueueRequests.hpp"
#include "KorvaneCore/sync/ChangePull.hpp"
#include "KorvaneCore/sync/SyncRoots.hpp"
#include "tests/jobs/JobsFixture.hpp"

namespace Korvane::Testing {
namespace {

namespace fs = std::filesystem;

class OfflineCopiesTest : public JobsFixture {
protected:
    /// A file of the account, or a new version of one.
    IndexItem remote(const std::string& name, const std::string& bytes, const std::string& folderId,
                     const std::optional<IndexItem>& before = {}) {
        auto job = uploadOf(write(name, bytes));
        job.folderId = folderId;
        if (before)
            job.fileId = before->id;
        const auto id = upload(job).file.id;
        device_.run(pullChanges(*device_.api(), *index_, *masterKey_));
        return index_->item(id).value();
    }

    std::string remoteFolder(const std::string& name) {
        const CreateFolderRequest request{name, root_, masterKey_->sealMeta(KRCrypto::FolderMeta(name)),
                                          masterKey_->nameBlindIndex(name)};
        index_->apply(device_.run(device_.api()->createFolder(request)), *masterKey_);
        return name;
    }

    /// Keeps what is pinned and lets the queue, if it runs, do what comes of it. The downloads it took.
    int keep(bool queueRuns = true) {
        const auto before = service_->faults().calls("GET /v1/files/{id}/download");
        device_.run(keepAndWait(queueRuns));
        return service_->faults().calls("GET /v1/files/{id}/download") - before;
    }

    asio::awaitable<void> keepAndWait(bool queueRuns) {
        auto context = context_;
        context.transport = std::make_shared<ForegroundBlobTransport>(device_.api());
        const auto queue = std::make_shared<TransferQueue>(co_await asio::this_coro::executor, index_,
                                                           std::make_shared<TransferRunner>(context),
                                                           systemClock(), TransferQueue::systemJitter());
        const auto copies = std::make_shared<OfflineCopies>(parts(queue));
        co_await queue->addOutcomeHandler([&](TransferOutcome outcome) -> asio::awaitable<void> {
            if (hearsOutcomes_)
                co_await copies->settled(std::move(outcome));
        });
        co_await copies->keep();
        if (queueRuns)
            co_await runOut(queue);
    }

    OfflineCopies::Parts parts(std::shared_ptr<TransferQueue> queue) {
        const NotificationCenter center(folder_ / "notifications");
        return {index_, std::move(queue), std::make_shared<QueueRequests>(index_, center), center, offline_};
    }

    [[nodiscard]] std::multiset<std::string> contents() const {
        std::multiset<std::string> found;
        for (const auto& entry : fs::directory_iterator(offline_))
            found.insert(read(entry.path()));
        return found;
    }

    using Contents = std::multiset<std::string>;

    fs::path offline_ = SharedContainer::offline();
    OfflineCopies copies_{parts(nullptr)};
    bool hearsOutcomes_ = true;
};

TEST_F(OfflineCopiesTest, PinnedFilesComeOnceFollowTheirContentAndGoWhenNothingAsksForThem) {
    const auto trip = remoteFolder("trip");
    const auto a = remote("a.txt", "first", trip);
    remote("b.txt", "second", trip);
    copies_.pin(a.id);
    copies_.pin(trip);
    EXPECT_FALSE(copies_.has(a));
    EXPECT_EQ(keep(), 2);
    EXPECT_EQ(contents(), (Contents{"first", "second"}));
    EXPECT_TRUE(copies_.has(a));
    EXPECT_TRUE(copies_.has(index_->item(trip).value()));
    EXPECT_EQ(index_->pinnedIds().at(a.id), a.version);
    EXPECT_EQ(keep(), 0);

    remote("a.txt", "changed", trip, a);
    EXPECT_EQ(keep(), 1);
    EXPECT_EQ(contents(), (Contents{"changed", "second"}));
    copies_.unpin(trip);
    EXPECT_EQ(contents(), Contents{"changed"}) << "pinned by itself";
    index_->markDeleted(trip, service_.clock->now());
    EXPECT_EQ(keep(), 0);
    EXPECT_EQ(contents(), Contents{});
}

TEST_F(OfflineCopiesTest, WhatSomebodyChangedIsNeitherReplacedNorRemoved) {
    const auto a = remote("a.txt", "first", root_);
    copies_.pin(a.id);
    keep();
    writeFile(offline_ / (a.id + ".txt"), "somebody's own");
    EXPECT_EQ(keep(), 1);
    EXPECT_EQ(contents(), (Contents{"first", "somebody's own"}));
    writeFile(offline_ / (a.id + ".txt"), "once more");
    copies_.unpin(a.id);
    EXPECT_EQ(contents(), (Contents{"once more", "somebody's own"}));
    EXPECT_EQ(keep(), 0);

    const auto b = remote("b.txt", "theirs", root_);
    writeFile(offline_ / (b.id + ".txt"), "foreign");
    copies_.pin(b.id);
    keep();
    OfflineCopies::removeAll(*index_, offline_);
    EXPECT_EQ(contents(), (Contents{"foreign", "once more", "somebody's own"}));
}

TEST_F(OfflineCopiesTest, BytesThatAreHereAreNotFetched) {
    const auto mirrored = remote("mirrored.txt", "below a root", root_);
    const auto file = folder_ / "mirrored.txt";
    const auto stat = localStat(file).value();
    SyncRoots::add(*index_, {"r", folder_.path(), root_});
    index_->setBase("r", {"mirrored.txt", mirrored.id, false, mirrored.version, stat.size, stat.mtime,
                          stat.inode, mirrored.sha256});
    copies_.pin(mirrored.id);
    EXPECT_EQ(keep(), 0);
    EXPECT_TRUE(copies_.has(mirrored));

    const auto a = remote("a.txt", "first", root_);
    copies_.pin(a.id);
    hearsOutcomes_ = false; // as when the process ends before
    EXPECT_EQ(keep(), 1);
    EXPECT_FALSE(copies_.has(a));
    EXPECT_EQ(keep(), 0);
    EXPECT_TRUE(copies_.has(a));
    EXPECT_EQ(contents(), Contents{"first"});
}

TEST_F(OfflineCopiesTest, WaitingDownloadsAreEnqueuedOnceAndCancelledWhenUnpinned) {
    const auto a = remote("a.txt", "first", root_);
    copies_.pin(a.id);
    keep(false);
    keep(false);
    const auto waiting = index_->transferIds({TransferRecord::State::pending}, -1);
    ASSERT_EQ(waiting.size(), 1U);
    copies_.unpin(a.id);
    EXPECT_EQ(QueueRequests(index_, NotificationCenter(folder_ / "notifications")).cancelled(),
              std::set<std::string>(waiting.begin(), waiting.end()));
}

TEST_F(OfflineCopiesTest, NoIdentifierLeadsOutOfTheFolder) {
    auto item = remote("a.txt", "first", root_);
    for (const auto* id : {"../escape", "a/b", "", ".", "..", "new\nline"}) {
        item.id = id;
        index_->upsert(item);
        index_->setPinned(id, true);
    }
    item.id = "plain";
    item.name = "x.../../b";
    index_->upsert(item);
    index_->setPinned("plain", true);
    keep(false);
    const auto waiting = index_->transferIds({TransferRecord::State::pending}, -1);
    ASSERT_EQ(waiting.size(), 1U);
    const auto job = transferJob(index_->transfer(waiting.front()).value());
    EXPECT_EQ(std::get<DownloadJob>(job).destinationPath, (offline_ / "plain").string());
}

} // namespace
} // namespace Korvane::Testing
