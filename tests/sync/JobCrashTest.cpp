// Uploads and downloads whose process dies at each of their steps in turn, and what the next process makes
// of it.
#include "KorvaneCore/sync/SyncRoots.hpp"
#include "tests/jobs/JobsFixture.hpp"
#include "tests/support/ChildProcess.hpp"

#include <csignal>
#include <sstream>

namespace Korvane::Testing {
namespace {

namespace fs = std::filesystem;

using Tree = std::map<std::string, std::string>; ///< contents by path

const std::string copyName = "plan (conflicted copy from Anna's laptop 2027-01-15).txt";

class JobCrashTest : public JobsFixture {
protected:
    struct Life {
        bool killed = false;
        std::string lastStep;
        int uploadsAgain = 0; ///< in the second round
    };

    /// A place for the lives of one client, with an index of its own.
    fs::path newPlace() {
        auto place = folder_ / ("place" + std::to_string(++places_));
        fs::create_directories(place / "root");
        FileKeychain keychain(place / "keychain.json");
        for (const auto key : {KeychainStore::Key::accessToken, KeychainStore::Key::refreshToken})
            keychain.write({{key, device_.keychain()->read(key).value()}});
        keychain.write(
            {{KeychainStore::Key::masterKey, KRCrypto::SecretBytes::copyOf(masterKey_->bytes().view())}});
        return place;
    }

    Life live(const fs::path& place, int step) {
        const auto now =
            std::chrono::duration_cast<std::chrono::seconds>(service_.clock->now().time_since_epoch());
        ChildProcess process({builtProgram("korvane-test-jobs"), place, service_->baseURL(),
                              std::to_string(now.count()), std::to_string(step)});
        process.closeInput();
        Life life;
        std::istringstream lines(process.readAll());
        bool again = false;
        for (std::string line; std::getline(lines, line);) {
            hear(line);
            again = again || line == "again";
            life.uploadsAgain += again && line == "after POST /v1/uploads" ? 1 : 0;
            if (!line.starts_with("key ") && !line.starts_with("sealed "))
                life.lastStep = line;
        }
        life.killed = process.wait() == -SIGKILL;
        EXPECT_EQ(life.killed, life.lastStep != "end") << "ended after: " << life.lastStep;
        return life;
    }

    /// No key seals two contents in one place, whoever used it and whenever.
    void hear(const std::string& line) {
        std::istringstream words(line);
        std::string what;
        std::string upload;
        words >> what >> upload;
        if (what == "key") {
            std::string wrapped;
            words >> wrapped;
            keys_[upload] =
                KRCrypto::hexString(masterKey_->unwrapFileKey(KRCrypto::Hex::decode(wrapped)).view());
        }
        if (what != "sealed")
            return;
        std::string part;
        std::string digest;
        words >> part >> digest;
        ASSERT_TRUE(keys_.contains(upload)) << "sealed under a key that was not stored";
        EXPECT_EQ(sealed_.try_emplace(keys_[upload] + "/" + part, digest).first->second, digest)
            << "two contents under one key";
    }

    /// The account's files below a folder, as another device gets them.
    Tree remote(const std::string& folderId) {
        Tree tree;
        const auto children = device_.run(device_.api()->allChildren(folderId));
        for (const auto& folder : children.folders)
            for (const auto& [path, bytes] : remote(folder.id))
                tree.emplace(masterKey_->openMeta(folder.metaEnc.value()).name() + "/" + path, bytes);
        for (const auto& file : children.files) {
            const auto name = masterKey_->openMeta(file.metaEnc).name();
            auto job = downloadOf(file, folder_ / "fetched");
            job.collision = DownloadJob::Collision::overwrite;
            download(job);
            EXPECT_TRUE(tree.emplace(name, read(folder_ / "fetched")).second) << "two files named " << name;
        }
        return tree;
    }

    static Tree local(const fs::path& folder) {
        Tree tree;
        for (const auto& entry : fs::recursive_directory_iterator(folder))
            if (entry.is_regular_file())
                tree.emplace(entry.path().lexically_relative(folder), read(entry.path()));
        return tree;
    }

    std::map<std::string, std::string> keys_;   ///< file keys, by upload
    std::map<std::string, std::string> sealed_; ///< digests, by key and part
    int places_ = 0;
};

TEST_F(JobCrashTest, AnUploadThatDiedAnywhereEndsAsOneFileOfTheRightBytes) {
    struct Case {
        const char* name;
        bool exists;     ///< in the account, from an earlier life
        bool theirs;     ///< has another device's version by now
        bool twin;       ///< lies beside one of equal content
        bool editedDead; ///< while no process lives
    };

    constexpr Case table[] = {
        {"new", false, false, false, false},
        {"new, edited", false, false, false, true},
        {"changed", true, false, false, false},
        {"changed, edited", true, false, false, true},
        {"in conflict", true, true, false, false},
        {"of a content sent already", false, false, true, false},
        {"of one, edited", false, false, true, true},
    };
    int seed = 0;
    for (const auto& [name, exists, theirs, twin, editedDead] : table) {
        int step = 0;
        for (bool killed = true; killed && !HasFailure();) {
            const auto place = newPlace();
            const auto root = place / "root";
            const auto remoteName = place.filename().string();
            const auto folder = device_.run(device_.api()->createFolder(
                {{}, root_, masterKey_->sealMeta(KRCrypto::FolderMeta(remoteName)), remoteName}));
            const auto file = root / (theirs ? "plan.txt" : "sub/plan.txt");
            fs::create_directories(file.parent_path());
            {
                LocalIndex index(place / "index.sqlite");
                SyncRoots::add(index, {"root", root, folder.id});
            }
            const auto sent = content(70, ++seed);
            if (twin)
                writeFile(root / "twin.txt", sent);
            if (exists)
                writeFile(file, content(50, ++seed));
            if (exists || twin)
                live(place, 0);
            Tree expected;
            if (theirs) {
                LocalIndex index(place / "index.sqlite");
                const auto item = index.child(folder.id, "plan.txt").value();
                auto job = uploadOf(write("theirs", content(60, ++seed)));
                job.name = "plan.txt";
                job.fileId = item.id;
                job.baseVersion = item.version;
                upload(job);
                expected["plan.txt"] = read(folder_ / "theirs");
            }
            writeFile(file, sent);
            const auto life = live(place, ++step);
            killed = life.killed;
            SCOPED_TRACE(std::string(name) + ", " + (killed ? "killed " : "") + life.lastStep);
            if (killed && editedDead)
                writeFile(file, content(90, ++seed));
            const auto mine = theirs ? copyName : "sub/plan.txt";
            expected[mine] = theirs ? sent : read(file);
            if (twin)
                expected["twin.txt"] = sent;
            EXPECT_EQ(live(place, 0).uploadsAgain, 0) << "it has not come to rest";
            EXPECT_EQ(remote(folder.id), expected);
            EXPECT_EQ(local(root), expected);
        }
        EXPECT_GT(step, 5) << name;
    }
    EXPECT_GT(sealed_.size(), 50U);
}

TEST_F(JobCrashTest, ADownloadThatDiedAnywhereEndsAsOneFileAndKeepsEveryEdit) {
    const auto bytes = content(70, 1);
    const auto file = upload(uploadOf(write("source", bytes))).file;

    struct Case {
        const char* name;
        bool exists;     ///< at the destination, as it was when planned
        bool edited;     ///< since then
        bool editedDead; ///< while no process lives
    };

    constexpr Case table[] = {
        {"to a free place", false, false, false},
        {"over what was there", true, false, false},
        {"over an edit", true, true, false},
        {"to a place that is taken meanwhile", false, false, true},
    };
    for (const auto& [name, exists, edited, editedDead] : table) {
        int step = 0;
        for (bool killed = true; killed && !HasFailure();) {
            const auto place = newPlace();
            const auto destination = place / "root" / "plan.txt";
            auto job = downloadOf(file, destination);
            if (exists) {
                writeFile(destination, "before");
                job.guardLocal = localStat(destination);
            }
            {
                asio::io_context context;
                TransferQueue queue(context.get_executor(),
                                    std::make_shared<LocalIndex>(place / "index.sqlite"), nullptr,
                                    systemClock(), TransferQueue::systemJitter());
                asio::co_spawn(
                    context, queue.enqueueDownload(job, "plan.txt", std::ssize(bytes)),
                    [](const std::exception_ptr& error, const std::string&) { EXPECT_FALSE(error); });
                context.run();
            }
            if (edited)
                writeFile(destination, "the edit");
            const auto life = live(place, ++step);
            killed = life.killed;
            SCOPED_TRACE(std::string(name) + ", " + (killed ? "killed " : "") + life.lastStep);
            const bool wasPlaced = fs::exists(destination) && read(destination) == bytes;
            if (killed && editedDead)
                writeFile(destination, "the edit");
            live(place, 0);
            Tree expected{{"plan.txt", bytes}};
            if (edited || (killed && editedDead))
                expected["plan (1).txt"] = "the edit";
            // Once it is done, an edit of what was placed is nobody's concern.
            const Tree left{{"plan.txt", "the edit"}};
            EXPECT_TRUE(local(place / "root") == expected ||
                        (wasPlaced && editedDead && local(place / "root") == left))
                << testing::PrintToString(local(place / "root"));
        }
        EXPECT_GT(step, 5) << name;
    }
}

} // namespace
} // namespace Korvane::Testing
