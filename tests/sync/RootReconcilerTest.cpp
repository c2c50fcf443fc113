#include "KorvaneCore/sync/RootReconciler.hpp"

#include "KorvaneCore/sync/ChangePull.hpp"
#include "tests/sync/JobsFixture.hpp"

namespace Korvane::Testing {
namespace {

namespace fs = std::filesystem;

/// A root that is reconciled, and a queue that does what comes of it.
class RootReconcilerTest : public JobsFixture {
protected:
    RootReconcilerTest() { SyncRoots::add(*index_, syncRoot_); }

    /// One round: reconcile, then run the queue until nothing waits. The uploads it took.
    int round() {
        const auto before = service_->faults().calls("POST /v1/uploads");
        device_.run(reconcileAndWait());
        return service_->faults().calls("POST /v1/uploads") - before;
    }

    asio::awaitable<void> reconcileAndWait() {
        auto context = context_;
        context.transport = std::make_shared<ForegroundBlobTransport>(device_.api());
        const auto executor = co_await asio::this_coro::executor;
        const auto queue =
            std::make_shared<TransferQueue>(executor, index_, std::make_shared<TransferRunner>(context),
                                            systemClock(), TransferQueue::systemJitter());
        RootReconciler reconciler({context, queue, status_, ownWrites_});
        co_await queue->addOutcomeHandler([&](TransferOutcome outcome) -> asio::awaitable<void> {
            again_ = co_await reconciler.settled(std::move(outcome));
        });
        co_await pullChanges(*device_.api(), *index_, *masterKey_);
        co_await reconciler.reconcile(syncRoot_);
        co_await queue->start();
        for (auto stats = co_await queue->stats(); stats.pending + stats.running > 0;
             stats = co_await queue->stats())
            co_await systemClock()->sleep(std::chrono::milliseconds(5));
        co_await queue->stop();
        co_await queue->finished();
    }

    /// The account's paths below the root, as another device sees them.
    std::vector<std::string> remotePaths() {
        LocalIndex fresh(folder_ / ("fresh" + std::to_string(++looks_)));
        device_.run(pullChanges(*device_.api(), fresh, *masterKey_));
        std::vector<std::string> paths;
        for (const auto& [path, item] : fresh.descendants(root_))
            if (!item.deletedAt)
                paths.push_back(path);
        std::ranges::sort(paths);
        return paths;
    }

    void put(const std::string& relPath, const std::string& bytes) {
        fs::create_directories((here_ / relPath).parent_path());
        writeFile(here_ / relPath, bytes);
    }

    fs::path here_ = folder_ / "root";
    SyncRoot syncRoot_{"root", (fs::create_directory(here_), here_.string()), root_};
    std::shared_ptr<StatusDatabase> status_ = std::make_shared<StatusDatabase>(
        folder_ / "status.sqlite", NotificationCenter(folder_ / "notifications"));
    std::shared_ptr<OwnWriteTracker> ownWrites_ = std::make_shared<OwnWriteTracker>(5, systemClock());
    std::optional<std::string> again_; ///< of the latest outcome
    int looks_ = 0;
};

TEST_F(RootReconcilerTest, ATreeIsMirroredAndWhatStaysIsLeftAlone) {
    put("a.txt", content(90, 1));
    put("deep/er/b.txt", content(20, 2));
    put("deep/\xC3\xBC \"hard\" name\n.txt", "x");
    put("deep/.DS_Store", "noise");
    fs::create_symlink("a.txt", here_ / "link");
    writeFile(here_ / "bad \xFF name", "x");
    EXPECT_EQ(round(), 3);
    EXPECT_EQ(remotePaths(), (std::vector<std::string>{"a.txt", "deep", "deep/er", "deep/er/b.txt",
                                                       "deep/\xC3\xBC \"hard\" name\n.txt"}));
    EXPECT_EQ(status_->status(here_ / "a.txt"), PathStatus::synced);
    EXPECT_EQ(status_->status(here_ / "link"), PathStatus::excluded);
    EXPECT_EQ(round(), 0) << "nothing has changed";

    put("a.txt", content(95, 3));
    fs::last_write_time(here_ / "deep/er/b.txt", fs::file_time_type::clock::now() + std::chrono::hours(1));
    EXPECT_EQ(round(), 1) << "a new version of one, a new date of the other";
    EXPECT_EQ(round(), 0);
}

TEST_F(RootReconcilerTest, MovesSendNoContent) {
    put("d/a.txt", content(90, 1));
    put("b.txt", content(50, 2));
    round();
    fs::rename(here_ / "d", here_ / "e");
    fs::rename(here_ / "b.txt", here_ / "e" / "c.txt");
    EXPECT_EQ(round(), 0);
    EXPECT_EQ(remotePaths(), (std::vector<std::string>{"e", "e/a.txt", "e/c.txt"}));
    EXPECT_EQ(round(), 0);
}

TEST_F(RootReconcilerTest, AConflictCopyHasItsNameHereToo) {
    put("plan.txt", content(60, 1));
    round();
    const auto item = index_->child(root_, "plan.txt");
    auto theirs = uploadOf(write("plan.txt", content(60, 2)));
    theirs.fileId = item->id;
    theirs.baseVersion = item->version;
    upload(theirs);
    put("plan.txt", content(61, 3));
    round();
    const std::string copy = "plan (conflicted copy from Anna's laptop 2027-01-15).txt";
    EXPECT_EQ(remotePaths(), (std::vector<std::string>{copy, "plan.txt"}));
    EXPECT_EQ(read(here_ / copy), content(61, 3));
    EXPECT_FALSE(fs::exists(here_ / "plan.txt"));
    EXPECT_EQ(status_->status(here_ / copy), PathStatus::conflict);
    EXPECT_EQ(round(), 0);
}

TEST_F(RootReconcilerTest, AFolderThatWentToTheTrashIsMadeAnewWithItsFiles) {
    put("d/a.txt", content(90, 1));
    round();
    device_.run(device_.api()->deleteFolder(index_->child(root_, "d")->id));
    put("d/b.txt", content(50, 2));
    round();
    round();
    EXPECT_EQ(remotePaths(), (std::vector<std::string>{"d", "d/a.txt", "d/b.txt"}));
}

} // namespace
} // namespace Korvane::Testing
