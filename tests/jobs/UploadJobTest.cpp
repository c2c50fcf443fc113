#include "KRCrypto/ChunkCrypto.hpp"
#include "KorvaneCore/jobs/PartPlan.hpp"
#include "tests/jobs/JobsFixture.hpp"

namespace Korvane::Testing {
namespace {

using Verdict = TransferRules::RunFailure::Verdict;

class UploadJobTest : public JobsFixture {
protected:
    std::vector<std::string> namesInRoot() {
        std::vector<std::string> names;
        for (const auto& file : device_.run(device_.api()->allChildren(root_)).files)
            names.push_back(masterKey_->openMeta(file.metaEnc).name());
        std::ranges::sort(names);
        return names;
    }

    void expectContent(const RemoteFile& file, const std::string& bytes) {
        const auto destination = folder_ / "downloaded";
        auto job = downloadOf(file, destination);
        job.collision = DownloadJob::Collision::overwrite;
        download(job);
        EXPECT_EQ(read(destination), bytes);
    }
};

TEST_F(UploadJobTest, EveryChunkEdgeGoesUpAndComesBack) {
    const auto c = static_cast<std::size_t>(jobChunk);
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, c - 1, c, c + 1, 2 * c, 5 * c + 7}) {
        const auto bytes = content(size, static_cast<int>(size));
        const auto uploaded = upload(uploadOf(write("file" + std::to_string(size), bytes)));
        EXPECT_EQ(uploaded.file.id, uploaded.job.clientFileId);
        EXPECT_EQ(index_->item(uploaded.file.id)->sha256, uploaded.job.sha256);
        expectContent(uploaded.file, bytes);
    }
}

TEST_F(UploadJobTest, EqualContentSendsNoByteAndKeepsItsKey) {
    const auto bytes = content(100);
    const auto first = upload(uploadOf(write("first", bytes)));
    transport_->puts = 0;
    const auto second = upload(uploadOf(write("second", bytes)));
    EXPECT_EQ(transport_->puts, 0);
    EXPECT_EQ(second.file.blobId, first.file.blobId);
    expectContent(second.file, bytes);
}

TEST_F(UploadJobTest, TheKeyOfAStoredBlobIsFoundWhereverItIs) {
    LocalService secretive([](ServiceSettings& settings) {
        settings.chunkSize = jobChunk;
        settings.tellsFileKeys = false;
    });
    TestDevice device(secretive);
    root_ = device.signUp("bob@example.org").user.rootFolderId;
    context_.api = device.api();
    auto transport = std::make_shared<WatchingTransport>(device.api());
    context_.transport = transport;
    const auto run = [&](const UploadJob& job) {
        KeptRun kept(job);
        transport->run = &kept;
        return std::get<TransferOutcome::Uploaded>(device.run(runner().run(kept))).file;
    };
    const auto bytes = content(90);
    const auto original = run(uploadOf(write("original", bytes)));
    EXPECT_EQ(run(uploadOf(write("from the index", bytes))).blobId, original.blobId);

    index_->reset();
    KeptRun unknown(uploadOf(write("unknown", bytes)));
    transport->run = &unknown;
    try {
        device.run(runner().run(unknown));
        ADD_FAILURE() << "a key came from nowhere";
    } catch (const TransferQueue::PermanentFailure& error) {
        EXPECT_EQ(error.message,
                  "This content already exists in an older file version whose key isn't available on "
                  "this device. Restore that version instead.");
    }
    auto update = uploadOf(folder_ / "original");
    update.fileId = original.id;
    EXPECT_EQ(run(update).blobId, original.blobId) << "from the file's versions";
    index_->reset();
    device.run(device.api()->deleteFile(original.id));
    EXPECT_EQ(run(uploadOf(folder_ / "unknown")).blobId, original.blobId) << "from the Trash";
    runner_.reset(); // before the device it works with
    context_ = {};
}

/// Every call of an upload fails in every way, once; the runs that follow end with one file of the right
/// bytes.
TEST_F(UploadJobTest, AFailureAtAnyStepLosesNothingAndDoublesNothing) {
    const std::string routes[] = {"POST /v1/uploads", "PUT /storage/parts/{upload}/{part}",
                                  "GET /v1/uploads/{id}", "POST /v1/uploads/{id}/complete"};
    const Fault::Kind kinds[] = {Fault::Answer{503, "", {}}, Fault::DropBefore{}, Fault::DropAfter{},
                                 Fault::Truncate{5}, Fault::Garbage{"{"}};
    int round = 0;
    for (const auto& route : routes)
        for (const int call : {1, 3})
            for (const auto& kind : kinds)
                for (const bool edited : {false, true}) {
                    const auto name = "file" + std::to_string(++round);
                    const auto source = write(name, content(110, round));
                    KeptRun run(uploadOf(source));
                    service_->faults().add(route, kind, call,
                                           4); // libcurl repeats on each connection it kept
                    std::optional<TransferRules::RunFailure> failed;
                    int runs = 0;
                    while ((failed = failure(run)) && ++runs < 8) {
                        EXPECT_NE(failed->verdict, Verdict::dropped) << failed->text;
                        if (edited && runs == 1)
                            write(name, content(120, round));
                    }
                    service_->faults().clear();
                    ASSERT_FALSE(failed) << route << " " << call << ": " << failed->text;
                    const auto file = device_.run(device_.api()->file(run.upload().clientFileId));
                    EXPECT_EQ(masterKey_->openMeta(file.metaEnc).name(), name);
                    EXPECT_LE(file.version, edited ? 2 : 1);
                    expectContent(file, read(source));
                }
    EXPECT_EQ(std::ssize(namesInRoot()), round);
}

// The transport holds against each other what is sealed under one key.
TEST_F(UploadJobTest, ASourceEditedMeanwhileIsNeverSentUnderTheOldKey) {
    struct Case {
        bool keepsLooks;  ///< size, date and inode
        bool ownProcess;  ///< the second run's
        bool betweenRuns; ///< edited then, not while it is sent
    };

    int round = 0;
    for (const auto& [keepsLooks, ownProcess, betweenRuns] :
         {Case{false, false, false}, Case{true, false, false}, Case{true, true, false},
          Case{true, true, true}}) {
        const auto before = content(200, ++round);
        const auto after = content(200, ++round);
        const auto source = write("file", before);
        const auto edit = [&] {
            const auto date = std::filesystem::last_write_time(source);
            std::fstream(source, std::ios::in | std::ios::out) << after;
            if (keepsLooks)
                std::filesystem::last_write_time(source, date);
        };
        KeptRun run(uploadOf(source));
        if (betweenRuns)
            service_->faults().add("PUT /storage/parts/{upload}/{part}", Fault::Answer{503, "", {}}, 3, 4);
        transport_->beforePut = [&, edited = betweenRuns]() mutable {
            if (!std::exchange(edited, true))
                edit();
        };
        const auto first = failure(run);
        ASSERT_TRUE(first);
        EXPECT_EQ(first->verdict, Verdict::retry);
        EXPECT_TRUE(betweenRuns || first->text == "File changed while it was being read") << first->text;
        transport_->beforePut = nullptr;
        if (betweenRuns)
            edit();
        if (ownProcess)
            runner_.reset();
        service_->faults().clear();
        expectContent(upload(run).file, after);
    }
}

TEST_F(UploadJobTest, ASourceThatVanishesIsLookedForOnceMore) {
    KeptRun run(uploadOf(write("file", content(200))));
    transport_->beforePut = [&] { std::filesystem::remove(folder_ / "file"); };
    EXPECT_EQ(failure(run)->text, "File changed while it was being read");
    const auto second = failure(run);
    EXPECT_EQ(second->text, "Source file no longer exists");
    EXPECT_EQ(second->verdict, Verdict::failed);
}

TEST_F(UploadJobTest, ASessionThatEndsMeanwhileIsBegunAnewAndRefusedPartsAreSentAgain) {
    const std::tuple<const char*, Fault::Answer, int> table[] = {
        {"GET /v1/uploads/{id}", {410, "", {}}, 6},
        {"GET /v1/uploads/{id}", {404, "", {}}, 6},
        {"POST /v1/uploads/{id}/complete", {410, "", {}}, 6},
        {"PUT /storage/parts/{upload}/{part}", {404, "", {}}, 4}, // the part beside it may not have begun
        {"PUT /storage/parts/{upload}/{part}", {410, "", {}}, 4},
        {"POST /v1/uploads/{id}/complete",
         {409, R"({"error":{"code":"parts_missing","details":{"missing":[2,99]}}})", {}},
         4},
    };
    int round = 0;
    for (const auto& [route, answer, puts] : table) {
        const auto bytes = content(3 * static_cast<std::size_t>(jobChunk), ++round);
        service_->faults().add(route, answer);
        transport_->puts = 0;
        expectContent(upload(uploadOf(write("file" + std::to_string(round), bytes))).file, bytes);
        EXPECT_GE(transport_->puts, puts) << route << " " << answer.status;
    }
}

TEST(PartPlan, WhatWasNotSentIsMissingWhateverTheServiceSaysOfIt) {
    const auto part = [](std::int64_t number, std::optional<bool> uploaded) {
        UploadPart part;
        part.partNumber = number;
        part.uploaded = uploaded;
        return part;
    };
    const auto indices = [](const PartPlan& plan) {
        std::vector<std::int64_t> missing;
        for (const auto& found : plan.missing())
            missing.push_back(found.index);
        return missing;
    };
    using Indices = std::vector<std::int64_t>;
    const std::vector parts{part(7, true), part(5, false), part(6, {})};
    PartPlan fresh(parts, 3);
    EXPECT_EQ(indices(fresh), (Indices{0, 1, 2}));
    EXPECT_EQ(indices(PartPlan::resumed(parts, 3)), (Indices{0, 1}));
    for (const int index : {0, 1, 2})
        fresh.markSent(index);
    EXPECT_EQ(indices(fresh), Indices{0}) << "the service does not have it";
    fresh.update({part(5, true), part(6, true), part(7, true)});
    EXPECT_EQ(indices(fresh), Indices{});
    fresh.markRefused({6, 8});
    EXPECT_EQ(indices(fresh), Indices{1});
    EXPECT_THROW(fresh.update({part(5, true), part(6, true)}), APIError);
    EXPECT_THROW(fresh.update({part(5, true), part(6, true), part(6, true)}), APIError);
}

TEST_F(UploadJobTest, AVersionConflictBecomesACopyBesideTheOtherVersion) {
    const auto original = upload(uploadOf(write("plan.txt", content(50, 1)))).file;
    uploadElsewhere(original.id, "plan.txt", content(50, 2));
    for (int i = 3; i < 6; ++i) {
        auto mine = uploadOf(write("plan.txt", content(50, i)));
        mine.fileId = original.id;
        mine.baseVersion = original.version;
        const auto uploaded = upload(mine);
        EXPECT_TRUE(uploaded.job.isConflictCopy);
        EXPECT_EQ(uploaded.job.originalName, "plan.txt");
        expectContent(uploaded.file, content(50, i));
    }
    const auto day = "2027-01-15"; // of the virtual clock
    EXPECT_EQ(namesInRoot(),
              (std::vector<std::string>{
                  std::string("plan (conflicted copy from Anna's laptop ") + day + " 2).txt",
                  std::string("plan (conflicted copy from Anna's laptop ") + day + " 3).txt",
                  std::string("plan (conflicted copy from Anna's laptop ") + day + ").txt", "plan.txt"}));
}

TEST_F(UploadJobTest, ACreationThatWasChangedElsewhereBeforeItsRetryBecomesACopy) {
    auto mine = uploadOf(write("plan.txt", content(50, 1)));
    const auto created = upload(mine).file.id;
    uploadElsewhere(created, "other.txt", content(50, 2));
    write("plan.txt", content(51, 3));
    const auto retried = upload(mine);
    EXPECT_TRUE(retried.job.isConflictCopy);
    EXPECT_NE(retried.file.id, created);
    expectContent(retried.file, content(51, 3));
}

TEST_F(UploadJobTest, ATakenNameIsNumbered) {
    for (int i = 0; i < 3; ++i)
        upload(uploadOf(write("a.tar.gz", content(30, i))));
    EXPECT_EQ(namesInRoot(), (std::vector<std::string>{"a.tar (1).gz", "a.tar (2).gz", "a.tar.gz"}));
}

TEST_F(UploadJobTest, AMissingFolderEndsEachOriginItsOwnWay) {
    const auto trashed = device_.run(
        device_.api()->createFolder({{}, root_, masterKey_->sealMeta(KRCrypto::FolderMeta("t")), "t"}));
    index_->apply(trashed, *masterKey_);
    device_.run(device_.api()->deleteFolder(trashed.id));
    const std::tuple<TransferOrigin, std::string, Verdict, std::string> table[] = {
        {TransferOrigin::Sync{"r", "p"}, trashed.id, Verdict::dropped,
         "Skipped: its cloud folder is in the Trash; it will be re-synced"},
        {TransferOrigin::Note{"d"}, "gone", Verdict::dropped,
         "Skipped: its cloud folder no longer exists; it will be saved again"},
        {TransferOrigin::Manual{}, "gone", Verdict::failed,
         "Not uploaded: the folder it was going into no longer exists. Discard it, or drag the file into an "
         "existing "
         "folder."},
        {TransferOrigin::Camera{"a"}, trashed.id, Verdict::failed,
         "Not uploaded: the folder it was going into is in the Trash. Discard it, or drag the file into an "
         "existing "
         "folder."},
    };
    const auto source = write("file", content(10));
    for (const auto& [origin, folder, verdict, text] : table) {
        auto job = uploadOf(source, origin);
        job.folderId = folder;
        const auto failed = failure(job);
        ASSERT_TRUE(failed);
        EXPECT_EQ(failed->verdict, verdict);
        EXPECT_EQ(failed->text, text);
    }
    EXPECT_NE(index_->item(trashed.id)->deletedAt, std::nullopt);
}

TEST_F(UploadJobTest, WhatCannotBeUploadedSaysWhy) {
    write("vanished", "x");
    std::filesystem::remove(folder_ / "vanished");
    std::filesystem::create_symlink(folder_ / "index.sqlite", folder_ / "link");
    std::filesystem::create_directory(folder_ / "folder");
    std::ofstream(folder_ / "large").close();
    std::filesystem::resize_file(folder_ / "large", 10'000 * jobChunk + 1);
    const std::pair<const char*, std::string> table[] = {
        {"vanished", "Source file no longer exists"},
        {"link", "Only regular files can be uploaded"},
        {"folder", "Only regular files can be uploaded"},
        {"large", "Bad request: File too large (max 10000 parts)"},
    };
    for (const auto& [name, text] : table) {
        const auto failed = failure(uploadOf(folder_ / name));
        ASSERT_TRUE(failed) << name;
        EXPECT_EQ(failed->verdict, Verdict::failed) << name;
        EXPECT_EQ(failed->text, text);
    }
    std::filesystem::resize_file(folder_ / "large", 10'000 * jobChunk);
    service_->faults().add("POST /v1/uploads", Fault::Answer{403, "", {}});
    EXPECT_EQ(failure(uploadOf(folder_ / "large"))->text, "Forbidden") << "as large as can be";
    service_->faults().add("POST /v1/uploads", Fault::Answer{200, R"({"status":"created"})", {}});
    EXPECT_EQ(failure(uploadOf(write("file", "x")))->text, "upload id missing");
}

TEST_F(UploadJobTest, ExpiredURLsAreRenewedAndEndlessRoundsEnd) {
    service_->faults().add("PUT /storage/parts/{upload}/{part}", Fault::Answer{403, "", {}}, 2);
    EXPECT_NO_THROW(upload(uploadOf(write("file", content(200, 1)))));
    service_->faults().add("PUT /storage/parts/{upload}/{part}", Fault::Answer{403, "", {}}, 1, 100);
    const auto failed = failure(uploadOf(write("other", content(200, 2))));
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->verdict, Verdict::retry);
    EXPECT_EQ(failed->text, "Network error: upload did not converge");
}

TEST_F(UploadJobTest, PicturesHaveAThumbnailThatNeverFailsThem) {
    // The smallest picture: a portable pixmap of one pixel.
    auto picture = uploadOf(write("dot.ppm", std::string("P6 1 1 255\n") + "abc"));
    picture.mime = "image/x-portable-pixmap";
    const auto uploaded = upload(picture);
    const auto key = masterKey_->unwrapFileKey(uploaded.file.wrappedFileKey);
    const auto sealed = device_.run(device_.api()->thumbnail(uploaded.file.id));
    const auto thumbnail = KRCrypto::ChunkCrypto::openThumbnail(key, sealed);
    EXPECT_EQ(thumbnail.at(0), 0xFF) << "a JPEG";
    EXPECT_TRUE(index_->item(uploaded.file.id)->hasThumbnail);

    auto broken = uploadOf(write("broken.png", "no picture"));
    broken.mime = "image/png";
    EXPECT_NO_THROW(upload(broken));
    service_->faults().add("PUT /v1/files/{id}/thumbnail", Fault::Answer{500, "", {}});
    auto refused = uploadOf(write("other.ppm", std::string("P6 1 1 255\n") + "xyz"));
    refused.mime = "image/x-portable-pixmap";
    EXPECT_NO_THROW(upload(refused));
}

} // namespace
} // namespace Korvane::Testing
