#include "KorvaneCore/jobs/FileNames.hpp"
#include "KorvaneCore/jobs/Placement.hpp"
#include "tests/jobs/JobsFixture.hpp"

namespace Korvane::Testing {
namespace {

using Collision = DownloadJob::Collision;
using Verdict = TransferRules::RunFailure::Verdict;

class DownloadJobTest : public JobsFixture {
protected:
    [[nodiscard]] std::vector<std::string> filesHere() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(here_))
            names.push_back(entry.path().filename());
        std::ranges::sort(names);
        return names;
    }

    static int permissionsOf(const std::filesystem::path& file) {
        return static_cast<int>(std::filesystem::status(file).permissions() & std::filesystem::perms(0777));
    }

    const std::string bytes_ = content(3 * static_cast<std::size_t>(jobChunk) + 5);
    RemoteFile file_ = upload(uploadOf(write("source.txt", bytes_))).file;
    std::filesystem::path here_ = folder_ / "here";
    std::filesystem::path destination_ = here_ / "file.txt";
};

TEST_F(DownloadJobTest, TheFileArrivesWholeDatedAndPrivate) {
    KeptRun run(downloadOf(file_, here_ / "deep" / "er" / "file.txt"));
    device_.run(runner().run(run));
    const auto placed = here_ / "deep" / "er" / "file.txt";
    EXPECT_EQ(read(placed), bytes_);
    EXPECT_EQ(permissionsOf(placed), 0600);
    EXPECT_EQ(run.ownWrites.size(), 4U) << "the folders too";
    EXPECT_EQ(run.ownWrites.at(placed), localStat(placed));
    EXPECT_TRUE(run.ownWrites.at(here_).isDirectory);
    EXPECT_NEAR(localStat(placed)->mtime, localStat(folder_ / "source.txt")->mtime, 0.001);
    EXPECT_EQ(run.record().progress, std::ssize(bytes_));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(placed.parent_path()), {}), 1);
}

TEST_F(DownloadJobTest, WhatAUserChangedIsKept) {
    struct Case {
        const char* what;
        bool present;
        bool guarded; ///< by its state before the edit
        bool edited;
        Collision collision;
        bool movesAside;
    };

    constexpr Case table[] = {
        {"nothing there", false, false, false, Collision::conflictCopy, false},
        {"unchanged", true, true, false, Collision::conflictCopy, false},
        {"edited", true, true, true, Collision::conflictCopy, true},
        {"not there when planned", true, false, false, Collision::conflictCopy, true},
        {"edited, to be overwritten", true, true, true, Collision::overwrite, false},
    };
    for (const auto& [what, present, guarded, edited, collision, movesAside] : table) {
        std::filesystem::remove_all(here_);
        std::filesystem::create_directory(here_);
        writeFile(here_ / "file (1).txt", "taken");
        if (present)
            writeFile(destination_, "old");
        auto job = downloadOf(file_, destination_);
        job.collision = collision;
        if (guarded)
            job.guardLocal = localStat(destination_);
        if (edited)
            writeFile(destination_, "edited by the user");
        const auto before = read(destination_);
        if (present)
            std::filesystem::permissions(destination_, std::filesystem::perms(0750));
        const auto downloaded = download(job);
        EXPECT_EQ(read(destination_), bytes_) << what;
        EXPECT_EQ(permissionsOf(destination_), present ? 0750 : 0600) << what;
        EXPECT_EQ(downloaded.movedAside.has_value(), movesAside) << what;
        if (movesAside)
            EXPECT_EQ(read(here_ / "file (2).txt"), before) << what;
        EXPECT_EQ(read(here_ / "file (1).txt"), "taken") << what;
    }
}

TEST_F(DownloadJobTest, AnEditDuringTheDownloadIsKept) {
    std::filesystem::create_directory(here_);
    writeFile(destination_, "old");
    auto job = downloadOf(file_, destination_);
    job.guardLocal = localStat(destination_);
    transport_->beforeGet = [&](std::int64_t first) {
        if (first > 0)
            writeFile(destination_, "edited");
    };
    EXPECT_EQ(download(job).movedAside, here_ / "file (1).txt");
    EXPECT_EQ(read(here_ / "file (1).txt"), "edited");
}

TEST_F(DownloadJobTest, AnEditBetweenTheLookAndTheRenameIsKept) {
    std::filesystem::create_directory(here_);
    writeFile(destination_, "as planned");
    const auto planned = localStat(destination_);
    PartialFile partial(here_ / ".korvane-x.partial");
    partial.append(KRCrypto::asBytes("fetched"));
    partial.finish({});
    bool edited = false;
    Placement placement(partial, destination_, [&](const std::filesystem::path&, const LocalStat& present) {
        if (!std::exchange(edited, true))
            writeFile(destination_, "saved meanwhile");
        return present != planned;
    });
    EXPECT_EQ(placement.carryOut(), here_ / "file (1).txt");
    EXPECT_EQ(read(here_ / "file (1).txt"), "saved meanwhile");
    EXPECT_EQ(read(destination_), "fetched");
    EXPECT_EQ(filesHere().size(), 2U);
}

TEST_F(DownloadJobTest, AFailureAtAnyStepLeavesNothingBehind) {
    const std::string routes[] = {"GET /v1/files/{id}", "GET /v1/files/{id}/download",
                                  "GET /storage/blobs/{blob}"};
    const Fault::Kind kinds[] = {Fault::Answer{503, "", {}}, Fault::DropBefore{}, Fault::Truncate{7},
                                 Fault::Garbage{"{"}, Fault::Answer{200, std::string(56, 'x'), {}}};
    for (const auto& route : routes)
        for (const int call : {1, 3})
            for (const auto& kind : kinds) {
                if (call == 3 && route != routes[2])
                    continue;
                std::filesystem::remove_all(here_);
                KeptRun run(downloadOf(file_, destination_));
                service_->faults().add(route, kind, call, 4); // libcurl repeats on each connection it kept
                EXPECT_TRUE(failure(run)) << route;
                if (std::filesystem::exists(here_))
                    EXPECT_EQ(filesHere().size(), 0U) << route;
                service_->faults().clear();
                EXPECT_FALSE(failure(run));
                EXPECT_EQ(read(destination_), bytes_);
                EXPECT_EQ(filesHere(), std::vector<std::string>{"file.txt"});
            }
}

TEST_F(DownloadJobTest, FilesThatAreGoneAreDropped) {
    auto missing = downloadOf(file_, destination_);
    missing.fileId = "nowhere";
    EXPECT_EQ(failure(missing)->text, "File no longer exists");
    EXPECT_EQ(failure(missing)->verdict, Verdict::dropped);
    service_->faults().add("GET /v1/files/{id}/download", Fault::Answer{404, "", {}});
    EXPECT_EQ(failure(downloadOf(file_, destination_))->text, "File no longer exists");
    device_.run(device_.api()->deleteFile(file_.id));
    EXPECT_EQ(failure(downloadOf(file_, destination_))->text, "File was deleted");
    EXPECT_EQ(failure(downloadOf(file_, destination_))->verdict, Verdict::dropped);
}

TEST_F(DownloadJobTest, AnExpiredURLIsRenewedOnce) {
    service_->faults().add("GET /storage/blobs/{blob}", Fault::Answer{403, "", {}}, 2);
    EXPECT_NO_THROW(download(downloadOf(file_, destination_)));
    service_->faults().add("GET /storage/blobs/{blob}", Fault::Answer{403, "", {}}, 1, 2);
    EXPECT_EQ(failure(downloadOf(file_, destination_))->text, "Forbidden");
}

TEST_F(DownloadJobTest, ARecordThatDoesNotBelongTogetherWritesNothing) {
    CreateFileRequest lie{
        {},
        root_,
        masterKey_->sealMeta(KRCrypto::FileMeta("lie", "text/plain", 1000, std::string(64, 'a'))),
        "lie",
        file_.blobId,
        file_.wrappedFileKey,
        file_.chunkCount,
        file_.encryptedSize,
        {},
        {}};
    const auto file = device_.run(device_.api()->createFile(lie));
    const auto failed = failure(downloadOf(file, destination_));
    EXPECT_EQ(failed->text, "Size mismatch");
    EXPECT_EQ(failed->verdict, Verdict::failed);
    EXPECT_FALSE(std::filesystem::exists(here_));

    lie.metaEnc = masterKey_->sealMeta(
        KRCrypto::FileMeta("hash", "text/plain", std::ssize(bytes_), std::string(64, 'a')));
    lie.nameBlindIndex = "hash";
    const auto other = device_.run(device_.api()->createFile(lie));
    EXPECT_TRUE(failure(downloadOf(other, destination_))->text.starts_with("Integrity check failed"));
    EXPECT_FALSE(std::filesystem::exists(destination_));
}

TEST_F(DownloadJobTest, AFolderInTheWayIsMovedAsideAndAFileForAFolderFails) {
    std::filesystem::create_directories(destination_ / "kept");
    EXPECT_EQ(download(downloadOf(file_, destination_)).movedAside, here_ / "file (1).txt");
    EXPECT_TRUE(std::filesystem::exists(here_ / "file (1).txt" / "kept"));
    EXPECT_EQ(failure(downloadOf(file_, destination_ / "below a file"))->verdict, Verdict::failed);
    auto over = downloadOf(file_, here_ / "file (1).txt");
    over.collision = Collision::overwrite;
    EXPECT_EQ(failure(over)->text, "could not move file into place (errno 21)");
}

TEST(FileNamesTest, SplitAtTheLastDotThatBeginsAnExtension) {
    const std::pair<std::string, std::string> table[] = {
        {"file.txt", "file (2).txt"},
        {"archive.tar.gz", "archive.tar (2).gz"},
        {".hidden", ".hidden (2)"},
        {"dot.", "dot. (2)"},
        {"no extension", "no extension (2)"},
        {"a.b c", "a.b c (2)"},
        {"a.123456789012345", "a (2).123456789012345"},
        {"a.1234567890123456", "a.1234567890123456 (2)"},
        {"z\u00fcri.\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4",
         "z\u00fcri (2).\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4"},
    };
    for (const auto& [name, second] : table)
        EXPECT_EQ(FileNames::numbered(name, 2), second);
    const std::string longest = std::string(246, 'x') + "\u00fcyyy.txt";
    EXPECT_EQ(FileNames::numberedFolder("Notes 1.2", 2), "Notes 1.2 (2)");
    EXPECT_EQ(FileNames::numbered(longest, 2), std::string(246, 'x') + " (2).txt") << "no half character";
    const auto full = FileNames::conflicted(longest, "Anna", "2026-11-21");
    EXPECT_EQ(full.size(), 255U);
    EXPECT_EQ(FileNames::furtherConflicted(full, 3),
              std::string(210, 'x') + " (conflicted copy from Anna 2026-11-21 3).txt");
    const auto copy = FileNames::conflicted("a.txt", "An/na", "2026-11-21");
    EXPECT_EQ(copy, "a (conflicted copy from Anna 2026-11-21).txt");
    EXPECT_EQ(FileNames::furtherConflicted(copy, 3), "a (conflicted copy from Anna 2026-11-21 3).txt");
}

} // namespace
} // namespace Korvane::Testing
