#include "KorvaneCore/sync/RootReconciler.hpp"

#include "KorvaneCore/platform/FileStatus.hpp"
#include "KorvaneCore/sync/ChangePull.hpp"
#include "tests/jobs/JobsFixture.hpp"

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
            if (beforeOutcome_)
                beforeOutcome_();
            again_ = co_await reconciler.settled(std::move(outcome));
        });
        co_await pullChanges(*device_.api(), *index_, *masterKey_);
        isIncomplete_ = false;
        try {
            co_await reconciler.reconcile(syncRoot_);
        } catch (const RootReconciler::Incomplete&) {
            isIncomplete_ = true;
        }
        if (beforeQueue_)
            co_await beforeQueue_();
        co_await runOut(queue);
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

    /// A conflict that the next round meets.
    void editOnBothSides() {
        put("plan.txt", content(60, 1));
        round();
        uploadElsewhere(index_->child(root_, "plan.txt")->id, "plan.txt", content(60, 2));
        put("plan.txt", content(61, 3));
    }

    const std::string copy_ = "plan (conflicted copy from Anna's laptop 2027-01-15).txt";
    fs::path here_ = folder_ / "root";
    SyncRoot syncRoot_{"root", (fs::create_directory(here_), here_.string()), root_};
    std::shared_ptr<StatusDatabase> status_ = std::make_shared<StatusDatabase>(
        folder_ / "status.sqlite", NotificationCenter(folder_ / "notifications"));
    std::shared_ptr<OwnWriteTracker> ownWrites_ = std::make_shared<OwnWriteTracker>(5, systemClock());
    std::function<asio::awaitable<void>()> beforeQueue_;
    std::function<void()> beforeOutcome_;
    std::optional<std::string> again_; ///< of the latest outcome
    bool isIncomplete_ = false;        ///< the latest reconcile
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
    EXPECT_EQ(status_->status(here_ / "deep/.DS_Store"), PathStatus::excluded);
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

TEST_F(RootReconcilerTest, WhatLooksAsBeforeIsToldByItsContent) {
    const auto rewrite = [this](const char* name, int seed) {
        const auto date = fs::last_write_time(here_ / name);
        put(name, content(90, seed));
        fs::last_write_time(here_ / name, date);
    };
    put("a.txt", content(90, 1));
    EXPECT_EQ(round(), 1);
    rewrite("a.txt", 1);
    EXPECT_EQ(round(), 0);
    rewrite("a.txt", 2);
    EXPECT_EQ(round(), 1);
    fs::rename(here_ / "a.txt", here_ / "b.txt");
    rewrite("b.txt", 3);
    EXPECT_EQ(round(), 1) << "no move";
    EXPECT_EQ(remotePaths(), (std::vector<std::string>{"a.txt", "b.txt"}));
    EXPECT_EQ(round(), 0);
}

TEST_F(RootReconcilerTest, WhatHasANumberInTheAccountKeepsItThroughNewVersions) {
    put("FOO.txt", content(90, 1));
    put("foo.txt", content(90, 2));
    EXPECT_EQ(round(), 2);
    for (const auto* name : {"FOO.txt", "foo.txt"}) {
        put(name, content(91, 3));
        EXPECT_EQ(round(), 1);
        EXPECT_EQ(status_->status(here_ / name), PathStatus::synced);
    }
    EXPECT_EQ(remotePaths().size(), 2U);
}

TEST_F(RootReconcilerTest, WhatWaitsInAFolderThatMovesIsSentFromItsNewPlace) {
    put("d/keep.txt", content(20, 1));
    round();
    put("d/f.txt", content(90, 2));
    bool isPaused = true;
    beforeQueue_ = [&]() -> asio::awaitable<void> {
        index_->setTransfersPaused(isPaused);
        co_return;
    };
    round();
    fs::rename(here_ / "d", here_ / "e");
    EXPECT_EQ(round(), 0);
    put("d/f.txt", content(90, 3));
    isPaused = false;
    EXPECT_EQ(round(), 2);
    EXPECT_EQ(remotePaths(), (std::vector<std::string>{"d", "d/f.txt", "e", "e/f.txt", "e/keep.txt"}));
    for (const auto* folder : {"d", "e"}) {
        const auto item = index_->child(index_->child(root_, folder)->id, "f.txt");
        EXPECT_EQ(item->sha256,
                  KRCrypto::hexString(KRCrypto::sha256(KRCrypto::asBytes(read(here_ / folder / "f.txt")))));
    }
    EXPECT_EQ(round(), 0);
}

TEST_F(RootReconcilerTest, AConflictCopyHasItsNameHereToo) {
    editOnBothSides();
    round();
    EXPECT_EQ(remotePaths(), (std::vector<std::string>{copy_, "plan.txt"}));
    EXPECT_EQ(read(here_ / copy_), content(61, 3));
    EXPECT_EQ(read(here_ / "plan.txt"), content(60, 2));
    EXPECT_EQ(status_->status(here_ / copy_), PathStatus::conflict);
    EXPECT_EQ(round(), 0);
    EXPECT_EQ(status_->status(here_ / copy_), PathStatus::conflict) << "until the user ends it";
    fs::remove(here_ / copy_);
    round();
    EXPECT_EQ(status_->aggregateStatus(here_), PathStatus::synced);
}

TEST_F(RootReconcilerTest, EditsAroundAConflictAreKept) {
    const std::string further = "plan (conflicted copy from Anna's laptop 2027-01-15 2).txt";
    editOnBothSides();
    beforeOutcome_ = [&] {
        if (!fs::exists(here_ / further))
            put(copy_, "in the way");
        else
            put("plan.txt", content(60, 4)); // once the other version has come
    };
    round();
    beforeOutcome_ = nullptr;
    EXPECT_EQ(read(here_ / copy_), "in the way");
    EXPECT_EQ(read(here_ / further), content(61, 3));
    EXPECT_EQ(again_, "root");
    EXPECT_EQ(round(), 2) << "the one in the way, and the edit of what had come";
    EXPECT_EQ(index_->child(root_, "plan.txt")->version, 3);
}

TEST_F(RootReconcilerTest, NamesThatAreTakenInTheAccountAreNumberedThere) {
    put("a.txt", content(10, 1));
    put("b.txt", content(20, 2));
    put("d/x", content(30, 3));
    round();
    upload(uploadOf(write("taken.txt", content(40, 4))));
    fs::remove(here_ / "a.txt");
    put("a.txt/inside", content(50, 5));
    fs::rename(here_ / "b.txt", here_ / "taken.txt");
    fs::create_directory(here_ / "sub");
    fs::rename(here_ / "d/x", here_ / "sub/x");
    put("Case/1", content(60, 6));
    put("case/2", content(70, 7));
    EXPECT_EQ(round(), 3);
    EXPECT_FALSE(isIncomplete_);
    EXPECT_EQ(remotePaths(), (std::vector<std::string>{"Case", "Case/1", "a.txt", "a.txt (1)",
                                                       "a.txt (1)/inside", "case (1)", "case (1)/2", "d",
                                                       "sub", "sub/x", "taken (1).txt", "taken.txt"}));
    EXPECT_EQ(round(), 0);
}

TEST_F(RootReconcilerTest, WhatIsTrashedElsewhereIsMadeAnewOnceItChangesHere) {
    put("edited", content(10, 1));
    put("moved", content(20, 2));
    put("left", content(30, 3));
    round();
    for (const auto* name : {"edited", "moved", "left"})
        device_.run(device_.api()->deleteFile(index_->child(root_, name)->id));
    put("edited", content(15, 4));
    fs::rename(here_ / "moved", here_ / "moved on");
    round();
    EXPECT_TRUE(isIncomplete_) << "the moved one begins anew";
    round();
    EXPECT_EQ(remotePaths(), (std::vector<std::string>{"edited", "moved on"}));
}

TEST_F(RootReconcilerTest, WhatIsTrashedElsewhereWhileItWaitsIsMadeAnew) {
    put("a.txt", content(10, 1));
    round();
    put("a.txt", content(15, 2));
    beforeQueue_ = [&, id = index_->child(root_, "a.txt")->id]() -> asio::awaitable<void> {
        co_await device_.api()->deleteFile(id);
    };
    round();
    EXPECT_EQ(again_, "root");
    EXPECT_EQ(remotePaths(), std::vector<std::string>{});
    beforeQueue_ = nullptr;
    EXPECT_EQ(round(), 1);
    EXPECT_EQ(remotePaths(), std::vector<std::string>{"a.txt"});
}

TEST_F(RootReconcilerTest, AFileThatMovesAsItsUploadEndsIsOneFile) {
    put("d/a.txt", content(10, 1));
    round();
    put("d/a.txt", content(15, 2));
    beforeOutcome_ = [&] { index_->moveBase("root", "d", "e"); }; // as a round does
    round();
    const auto bases = index_->basesOf(index_->child(index_->child(root_, "d")->id, "a.txt")->id);
    ASSERT_EQ(bases.size(), 1U);
    EXPECT_EQ(bases.front().entry.relPath, "e/a.txt");
}

TEST_F(RootReconcilerTest, NothingIsSentWhileTheMirroredFolderIsInTheTrash) {
    put("m/a.txt", content(10, 1));
    round();
    const auto folder = index_->child(root_, "m")->id;
    syncRoot_ = {"inner", (here_ / "m").string(), folder};
    SyncRoots::add(*index_, syncRoot_);
    device_.run(device_.api()->deleteFolder(folder));
    put("m/b.txt", content(20, 2));
    EXPECT_EQ(round(), 0);
    EXPECT_EQ(status_->status(here_ / "m"), PathStatus::error);
    EXPECT_TRUE(isIncomplete_);
    device_.run(device_.api()->restoreFolder(folder));
    EXPECT_EQ(round(), 1);
    EXPECT_EQ(status_->aggregateStatus(here_ / "m"), PathStatus::synced);
}

TEST_F(RootReconcilerTest, AnUploadThatFailedWithItsFileGoneIsForgotten) {
    put("brief", content(10, 1));
    service_->faults().add("POST /v1/uploads", Fault::Answer{400, "", {}});
    round();
    EXPECT_EQ(status_->status(here_ / "brief"), PathStatus::error);
    fs::remove(here_ / "brief");
    round();
    EXPECT_EQ(status_->status(here_ / "brief"), std::nullopt);
    EXPECT_TRUE(index_->transfers({{TransferRecord::State::failed}}, -1).empty());
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

TEST_F(RootReconcilerTest, AFailedFileIsTriedAgainOnceItIsAnother) {
    put("a.txt", content(90, 1));
    service_->faults().add("POST /v1/uploads", Fault::Answer{403, "", {}}, 1, 2);
    EXPECT_EQ(round(), 1);
    EXPECT_EQ(status_->status(here_ / "a.txt"), PathStatus::error);
    EXPECT_EQ(round(), 0) << "it waits for the user";
    const auto failedAt = index_->transfers({{TransferRecord::State::failed}}, -1).at(0).createdAt;
    do // the clock of the file system ticks slowly
        fs::permissions(here_ / "a.txt", fs::perms::owner_read | fs::perms::owner_write);
    while (fileStatus(here_ / "a.txt")->changed <= failedAt);
    EXPECT_EQ(round(), 1) << "it may be readable now";
    EXPECT_EQ(round(), 0);
    put("a.txt", content(90, 2));
    EXPECT_EQ(round(), 1);
    EXPECT_EQ(remotePaths(), std::vector<std::string>{"a.txt"});
    EXPECT_TRUE(index_->transfers({{TransferRecord::State::failed}}, -1).empty());
}

TEST_F(RootReconcilerTest, AFolderThatWasSyncedBeforeIsTakenUpAsItIs) {
    put("d/a.txt", content(90, 1));
    put("d/b.txt", content(90, 2));
    round();
    index_->clearBase("root");
    put("d/b.txt", content(90, 3));
    EXPECT_EQ(round(), 1) << "the one with another content";
    EXPECT_EQ(remotePaths(), (std::vector<std::string>{"d", "d/a.txt", "d/b (1).txt", "d/b.txt"}));
    put("d/a.txt", content(91, 4));
    round();
    EXPECT_EQ(remotePaths().size(), 4U) << "a new version of what was there";
}

TEST_F(RootReconcilerTest, EqualFilesAreSentOnce) {
    for (const auto* name : {"a", "b", "c"})
        put(name, content(90, 1));
    EXPECT_EQ(round(), 3);
    EXPECT_EQ(service_->faults().calls("PUT /storage/parts/{upload}/{part}"), 3);
    EXPECT_EQ(service_->faults().calls("POST /v1/uploads/{id}/complete"), 1);
    EXPECT_EQ(service_->faults().calls("POST /v1/files"), 2);
}

TEST_F(RootReconcilerTest, AFileThatChangesAsItsUploadEndsIsLookedAtAgain) {
    put("a.txt", content(90, 1));
    round();
    EXPECT_EQ(again_, std::nullopt);
    put("a.txt", content(91, 2));
    beforeOutcome_ = [&] { put("a.txt", content(92, 3)); };
    round();
    EXPECT_EQ(again_, "root");
}

TEST(PeriodicPull, GoesOnAfterAFailureUntilItIsDestroyed) {
    asio::io_context context;
    const auto clock = std::make_shared<VirtualClock>();
    int pulls = 0;
    std::optional<PeriodicPull> pull;
    pull.emplace(context.get_executor(), clock, std::chrono::seconds(60), [&]() -> asio::awaitable<void> {
        if (++pulls == 1)
            throw APIError(APIError::Transport{"offline", true});
        co_return;
    });
    const auto minutes = [&](int count) {
        for (int i = 0; i < count; ++i) {
            context.restart();
            context.poll();
            clock->advance(std::chrono::seconds(60));
        }
        context.restart();
        context.poll();
    };
    minutes(3);
    EXPECT_EQ(pulls, 3);
    pull.reset();
    minutes(2);
    EXPECT_EQ(pulls, 3);
}

} // namespace
} // namespace Korvane::Testing
