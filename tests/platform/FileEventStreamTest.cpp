#include "KorvaneCore/platform/FileEventStream.hpp"

#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <semaphore>
#include <set>

namespace Korvane {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Testing::writeFile;

/// A folder, the stream on it, and all that the stream has told so far.
class FollowedFolder {
public:
    using Prepare = std::function<void(const fs::path& root)>;

    /// `onBatch` runs on the stream's thread before a batch counts.
    explicit FollowedFolder(
        const Prepare& prepare = {}, std::chrono::milliseconds latency = 10ms,
        std::function<void()> onBatch = [] {}) {
        fs::create_directory(root);
        if (prepare)
            prepare(root);
        FileEventOptions options;
        options.latency = latency;
        stream = openFileEventStream(
            {root}, options, [this, onBatch = std::move(onBatch)](const std::vector<FileEvent>& batch) {
                onBatch();
                add(batch);
            });
    }

    /// Waits until every path, relative to the root, was told of since the last forget().
    void expect(const std::vector<std::string>& paths) {
        std::unique_lock lock(mutex_);
        for (const auto& path : paths)
            EXPECT_TRUE(changed_.wait_for(lock, 20s, [&] { return told_.contains(root / path); })) << path;
    }

    void expectFlag(std::uint32_t flag) {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, 20s, [&] { return (flags_ & flag) != 0; })) << flag;
    }

    /// Events come in order, so all earlier ones were told once this one is.
    void expectLast(const std::string& name = "last") {
        writeFile(root / name, "");
        expect({name});
    }

    bool told(const std::string& path) {
        const std::lock_guard lock(mutex_);
        return told_.contains(root / path);
    }

    void forget() {
        const std::lock_guard lock(mutex_);
        told_.clear();
        flags_ = 0;
    }

    // In memory: tens of thousands of files are made here.
    Testing::ScopedEnvironment temporary{"TMPDIR", "/dev/shm"};
    Testing::TemporaryFolder outer;
    const fs::path root = outer / "root";

private:
    void add(const std::vector<FileEvent>& batch) {
        const std::lock_guard lock(mutex_);
        std::set<std::string> paths;
        for (const auto& event : batch) {
            EXPECT_TRUE(paths.insert(event.path).second) << event.path << " twice in one batch";
            flags_ |= event.flags;
        }
        told_.merge(paths);
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::set<std::string> told_;
    std::uint32_t flags_ = 0;

public:
    std::unique_ptr<FileEventStream> stream; // ends before what it tells to
};

TEST(FileEventStream, EveryKindOfChangeToAFileIsTold) {
    FollowedFolder folder([](const fs::path& root) { writeFile(root / "sub/file", "before"); });
    const auto file = folder.root / "sub/file";
    const std::vector<std::pair<const char*, std::function<void()>>> changes{
        {"written", [&] { writeFile(file, "after"); }},
        {"touched", [&] { fs::last_write_time(file, fs::file_time_type::clock::now()); }},
        {"mode", [&] { fs::permissions(file, fs::perms::owner_read); }},
        {"renamed", [&] { fs::rename(file, folder.root / "sub/other"); }},
        {"back", [&] { fs::rename(folder.root / "sub/other", file); }},
        {"linked", [&] { fs::remove(file), fs::create_symlink("/etc/passwd", file); }},
        {"removed", [&] { fs::remove(file); }},
    };
    for (const auto& [name, change] : changes) {
        SCOPED_TRACE(name);
        folder.forget();
        change();
        folder.expect({"sub/file"});
    }
}

TEST(FileEventStream, SavingThroughATemporaryFileTellsTheFile) {
    FollowedFolder folder([](const fs::path& root) { writeFile(root / "note.txt", "before"); });
    writeFile(folder.root / ".note.txt.swp", "after");
    fs::rename(folder.root / "note.txt", folder.root / "note.txt~");
    fs::rename(folder.root / ".note.txt.swp", folder.root / "note.txt");
    fs::remove(folder.root / "note.txt~");
    folder.expect({".note.txt.swp", "note.txt~", "note.txt"});
}

TEST(FileEventStream, NamesOfAnyBytesAreToldAsTheyAre) {
    FollowedFolder folder;
    const std::vector<std::string> names{"line\nbreak", "\xff\xfe", std::string(255, 'n'), " ", "-rf", "é"};
    for (const auto& name : names)
        writeFile(folder.root / name / name, "");
    for (const auto& name : names)
        folder.expect({name, (fs::path(name) / name).string()});
}

TEST(FileEventStream, FilesInFoldersJustMadeAreNotMissed) {
    FollowedFolder folder;
    std::string deep = "a";
    for (int i = 0; i < 60; ++i) {
        writeFile(folder.root / deep / "file", "");
        deep += "/b" + std::to_string(i);
    }
    for (auto path = fs::path(deep).parent_path(); !path.empty(); path = path.parent_path())
        folder.expect({path.string(), (path / "file").string()});
}

TEST(FileEventStream, NothingOfALargeTreeIsMissedAndAllOfItIsFollowed) {
    FollowedFolder folder;
    constexpr int width = 20;
    std::vector<std::string> folders;
    std::vector<std::string> files;
    for (int i = 0; i < width * width; ++i) {
        folders.push_back("d" + std::to_string(i / width) + "/e" + std::to_string(i % width));
        for (int j = 0; j < 10; ++j)
            files.push_back(folders.back() + "/f" + std::to_string(j));
    }
    for (const auto& file : files)
        writeFile(folder.root / file, "");
    folder.expect(files);

    for (const auto& path : folders)
        writeFile(folder.root / path / "later", "");
    for (const auto& path : folders)
        folder.expect({path + "/later"});
}

TEST(FileEventStream, AFolderMovedWithinTheTreeKeepsBeingFollowedAndOnlyItsPathsAreTold) {
    FollowedFolder folder([](const fs::path& root) {
        writeFile(root / "from/moved/inner/file", "");
        fs::create_directory(root / "to");
    });
    fs::rename(folder.root / "from/moved", folder.root / "to/arrived");
    folder.expect({"from/moved", "to/arrived"});
    writeFile(folder.root / "to/arrived/inner/new", "");
    folder.expect({"to/arrived/inner/new"});
    EXPECT_FALSE(folder.told("to/arrived/inner/file")) << "the engine's own moves would echo";
}

TEST(FileEventStream, FoldersThatSwapNamesAreToldUnderTheirNewOnes) {
    FollowedFolder folder([](const fs::path& root) {
        writeFile(root / "a/in-a/file", "");
        writeFile(root / "b/in-b/file", "");
    });
    fs::rename(folder.root / "a", folder.root / "c");
    fs::rename(folder.root / "b", folder.root / "a");
    fs::rename(folder.root / "c", folder.root / "a/in-b/c");
    fs::create_directory(folder.root / "b");
    folder.expectLast();
    writeFile(folder.root / "b/new", "");
    writeFile(folder.root / "a/in-b/c/in-a/new", "");
    folder.expect({"b/new", "a/in-b/c/in-a/new"});
}

TEST(FileEventStream, AFolderMovedOutIsNotFollowedAnyMoreAndOneMovedInIs) {
    FollowedFolder folder([](const fs::path& root) { writeFile(root / "leaves/sub/file", ""); });
    const auto outside = folder.outer / "outside";
    fs::rename(folder.root / "leaves", outside);
    folder.expectLast();

    // The first event of a kind that nobody waits for proves nothing, so the stream is given rounds to end
    // it.
    for (int round = 0; round < 100; ++round) {
        folder.forget();
        writeFile(outside / "sub/file", "changed");
        folder.expectLast("round" + std::to_string(round));
        if (!folder.told("leaves/sub/file"))
            break;
    }
    EXPECT_FALSE(folder.told("leaves/sub/file"));

    fs::rename(outside, folder.root / "returns");
    folder.expect({"returns", "returns/sub", "returns/sub/file"});
    folder.forget();
    writeFile(folder.root / "returns/sub/file", "again");
    folder.expect({"returns/sub/file"});
}

TEST(FileEventStream, LinksAreToldButNotFollowed) {
    FollowedFolder folder;
    fs::create_directory(folder.outer / "elsewhere");
    fs::create_directory_symlink(folder.outer / "elsewhere", folder.root / "link");
    folder.expect({"link"});
    writeFile(folder.outer / "elsewhere/file", "");
    folder.expectLast();
    EXPECT_FALSE(folder.told("link/file"));
}

TEST(FileEventStream, AFolderIsFollowedOnceItMayBeRead) {
    if (::geteuid() == 0)
        GTEST_SKIP() << "this user may read everything";
    FollowedFolder folder([](const fs::path& root) {
        fs::create_directories(root / "closed/sub");
        fs::permissions(root / "closed", fs::perms::none);
    });
    fs::permissions(folder.root / "closed", fs::perms::owner_all);
    folder.expect({"closed"});
    writeFile(folder.root / "closed/sub/file", "");
    folder.expect({"closed/sub/file"});
}

TEST(FileEventStream, TheFirstEventComesAtOnceAndABurstInBatchesALatencyApart) {
    constexpr auto latency = 100ms;
    std::vector<std::chrono::steady_clock::time_point> times;
    std::counting_semaphore<> batches(0);
    FollowedFolder folder({}, latency, [&] {
        times.push_back(std::chrono::steady_clock::now());
        batches.release();
    });
    const auto file = folder.root / "file";
    for (int seen = 0; seen < 4;) {
        writeFile(file, "again");
        if (batches.try_acquire())
            ++seen;
    }
    folder.stream.reset();
    for (std::size_t i = 1; i < times.size(); ++i)
        EXPECT_GE(times[i] - times[i - 1], latency);

    FollowedFolder slow({}, 1h);
    writeFile(slow.root / "first", "");
    slow.expect({"first"});
}

TEST(FileEventStream, MoreChangesThanAreKeptAskForARescan) {
    FollowedFolder folder({}, 200ms);
    fs::create_directory(folder.outer / "big");
    for (int i = 0; i < 17'000; ++i)
        fs::create_symlink("x", folder.outer / "big" / std::to_string(i));
    fs::rename(folder.outer / "big", folder.root / "big");
    folder.expectFlag(FileEvent::userDropped);
    folder.expectFlag(FileEvent::mustScanSubDirs);
}

TEST(FileEventStream, AFullQueueOfTheKernelAsksForARescanAndFollowsOn) {
    std::binary_semaphore blocked(0);
    std::binary_semaphore go(0);
    FollowedFolder folder({}, 10ms, [&, isFirst = true]() mutable {
        if (!std::exchange(isFirst, false))
            return;
        blocked.release();
        go.acquire();
    });
    writeFile(folder.root / "first", "");
    blocked.acquire();
    for (int i = 0; i < 10'000; ++i) {
        fs::create_symlink("x", folder.root / "link");
        fs::remove(folder.root / "link");
    }
    fs::create_directories(folder.root / "lost/deep");
    go.release();
    folder.expectFlag(FileEvent::kernelDropped);
    folder.expectFlag(FileEvent::mustScanSubDirs);
    writeFile(folder.root / "lost/deep/file", "");
    folder.expect({"lost/deep/file"});
    EXPECT_FALSE(folder.told("lost")) << "the queue had room after all";
}

TEST(FileEventStream, ALostRootIsToldAndFollowedAgainOnceItIsBack) {
    const std::vector<std::pair<const char*, std::function<void(const FollowedFolder&)>>> losses{
        {"removed", [](const auto& folder) { fs::remove_all(folder.root); }},
        {"moved", [](const auto& folder) { fs::rename(folder.root, folder.outer / "moved"); }},
        {"folder above moved",
         [](const auto& folder) {
             fs::rename(folder.outer.path(), fs::path(folder.outer.path()) += ".moved");
         }},
    };
    for (const auto& [name, lose] : losses) {
        SCOPED_TRACE(name);
        FollowedFolder folder([](const fs::path& root) { fs::create_directory(root / "sub"); });
        lose(folder);
        folder.expectFlag(FileEvent::rootChanged);
        folder.forget();
        fs::create_directories(folder.root / "sub");
        folder.expectFlag(FileEvent::rootChanged);
        writeFile(folder.root / "sub/file", "");
        folder.expect({"sub/file"});
        fs::remove_all(fs::path(folder.outer.path()) += ".moved");
    }
}

/// Runs a shell command, with the peer's path as $0 and the folder as $1, with rights of its own over the
/// limits and mounts that the kernel keeps for each user namespace.
std::unique_ptr<Testing::ChildProcess> runPrivileged(const std::string& command, const fs::path& folder) {
    const std::vector<std::string> unshare{"/usr/bin/unshare", "-Urm", "/bin/sh", "-c"};
    auto probe = unshare;
    probe.insert(probe.end(), {"test -w /proc/sys/user/max_inotify_watches"});
    if (Testing::ChildProcess(probe).wait() != 0)
        return nullptr;
    auto arguments = unshare;
    arguments.insert(arguments.end(), {command, Testing::builtProgram("korvane-test-peer"), folder});
    return std::make_unique<Testing::ChildProcess>(arguments);
}

TEST(FileEventStream, WithTooFewWatchesRescansReplaceTheSilenceAndTheSettingIsNamedOnce) {
    const Testing::TemporaryFolder folder;
    for (int i = 0; i < 20; ++i)
        fs::create_directory(folder / std::to_string(i));
    for (const auto& [limit, value] :
         {std::pair<std::string, std::string>("watches", "5"), {"instances", "0"}}) {
        SCOPED_TRACE(limit);
        auto command = "echo " + value;
        command += " > /proc/sys/user/max_inotify_" + limit;
        command += " && exec \"$0\" watch \"$1\" 2>&1";
        const auto process = runPrivileged(command, folder.path());
        if (process == nullptr)
            GTEST_SKIP() << "no user namespaces here";
        EXPECT_THAT(process->readLine(), testing::HasSubstr("fs.inotify.max_user_" + limit));
        EXPECT_EQ(process->readLine(), "watching");
        for (int round = 0; round < 3; ++round)
            EXPECT_EQ(process->readLine(), "1 " + folder.path().string());
    }
}

TEST(FileEventStream, AnUnmountedRootIsToldAndFollowedOnceItIsMountedAgain) {
    const Testing::TemporaryFolder folder;
    const auto process = runPrivileged(R"(mount -t tmpfs none "$1" && "$0" watch "$1" | {
        read a; umount "$1"; read b; mount -t tmpfs none "$1"; read c; touch "$1/file"; read d
        echo "$a, $b, $c, $d"; })",
                                       folder.path());
    if (process == nullptr)
        GTEST_SKIP() << "no user namespaces here";
    const auto root = folder.path().string();
    EXPECT_EQ(process->readLine(), "watching, 33 " + root + ", 33 " + root + ", 0 " + root + "/file");
}

} // namespace
} // namespace Korvane
