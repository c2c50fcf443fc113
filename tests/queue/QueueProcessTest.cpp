// The queue across processes: killed at any moment, and steered by `korvane queue` from outside.
// KORVANE_SEED runs one seed, KORVANE_LONG many more rounds.
#include "KorvaneCore/config/KRIdentifiers.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/platform/NotificationCenter.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <map>
#include <random>
#include <semaphore>
#include <set>
#include <sstream>

namespace Korvane::Testing {
namespace {

using State = TransferRecord::State;
using testing::HasSubstr;

/// What a life of the process said: every id it stored, and that no two runs overlapped that must not.
struct Life {
    std::set<std::string> queued;
    std::set<std::string> ended;
    std::map<std::string, std::string> running; ///< origins by id

    void hear(const std::string& line, const std::set<std::string>& doneBefore) {
        std::istringstream words(line);
        std::string what;
        std::string id;
        std::string origin;
        words >> what >> id >> origin;
        if (what == "queued")
            queued.insert(id);
        if (what == "end") {
            running.erase(id);
            ended.insert(id);
        }
        if (what != "start")
            return;
        EXPECT_FALSE(doneBefore.contains(id)) << id << " ran again after it was done";
        for (const auto& [other, its] : running)
            EXPECT_FALSE(other == id || (origin != "-" && its == origin)) << id << " overlaps " << other;
        running.emplace(id, origin);
        EXPECT_LE(running.size(), 3U);
    }
};

TEST(QueueProcess, KilledAtAnyMomentItForgetsNothingAndRunsNothingTwice) {
    const TemporaryFolder folder;
    const auto url = folder / "index.sqlite";
    const auto* given = std::getenv("KORVANE_SEED");
    const std::uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 10) : std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 engine(seed);
    const int lives = std::getenv("KORVANE_LONG") != nullptr ? 1000 : 40;
    std::set<std::string> stored;
    std::set<std::string> done;
    int killedWhileRunning = 0;
    for (int life = 0; life <= lives && !testing::Test::HasFailure(); ++life) {
        const bool last = life == lives;
        ChildProcess process({builtProgram("korvane-test-queue"), "work", url, std::to_string(life), "8",
                              std::to_string(engine())});
        Life heard;
        auto lines = std::uniform_int_distribution(1, 30)(engine);
        for (auto line = process.readLine(); !line.empty() && line != "idle"; line = process.readLine()) {
            heard.hear(line, done);
            if (!last && --lines == 0)
                process.signal(SIGKILL);
        }
        process.wait();
        stored.insert(heard.queued.begin(), heard.queued.end());

        LocalIndex index(url);
        std::size_t running = 0;
        std::set<std::string> found;
        for (const auto& record : index.transfers({}, -1)) {
            found.insert(record.id);
            running += record.state == State::running ? 1U : 0U;
            if (record.state == State::done)
                done.insert(record.id);
            EXPECT_TRUE(record.state == State::done || record.state == State::pending ||
                        record.state == State::running);
        }
        EXPECT_TRUE(std::ranges::includes(found, stored));
        EXPECT_LE(running, 3U);
        killedWhileRunning += running == 3 ? 1 : 0;
        if (last)
            EXPECT_EQ(found, done);
    }
    EXPECT_GT(killedWhileRunning, 0);
}

struct QueueCommand : testing::Test {
    TemporaryContainer container;

    static ProgramResult run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "queue");
        return runProgram("korvane", std::move(arguments));
    }

    static void insert(LocalIndex& index, const std::string& id, State state) {
        TransferRecord record;
        record.id = id;
        record.state = state;
        const std::string payload =
            R"({"sourcePath":"","deleteSourceWhenDone":false,"folderId":"","name":"","clientFileId":"",)"
            R"("origin":{"manual":{}},"requiresUnmetered":false,"nameAttempt":0,"isConflictCopy":false})";
        record.payload.assign(payload.begin(), payload.end());
        record.createdAt = record.nextAttempt = TransferRecord::Date(std::chrono::seconds(1'700'000'000));
        record.progress = 1;
        record.total = 4;
        record.title = "Plan\x1b.txt";
        if (state == State::failed)
            record.lastError = "Not found";
        index.insertTransfer(record);
    }
};

TEST_F(QueueCommand, WithoutAnIndexFailsAndCreatesNothing) {
    for (const auto& command :
         std::vector<std::vector<std::string>>{{}, {"list"}, {"pause"}, {"cancel", "x"}})
        EXPECT_EQ(run(command).exitCode, 1);
    EXPECT_EQ(runProgram("korvane", {"activity"}).exitCode, 1);
    EXPECT_FALSE(std::filesystem::exists(container.path()));
}

TEST_F(QueueCommand, ListsWhatWaitsAndWhatWasDone) {
    LocalIndex index(SharedContainer::databaseURL());
    EXPECT_EQ(run({}).output, "Nothing waits.\n");
    insert(index, "b", State::failed);
    insert(index, "a", State::pending);
    insert(index, "c", State::done);
    EXPECT_EQ(run({"pause"}).exitCode, 0);
    EXPECT_EQ(run({"cancel", "a"}).output, "Cancelling 1 transfer.\n");
    EXPECT_EQ(run({"metered", "yes"}).exitCode, 0);
    EXPECT_EQ(run({}).output, "Transfers are paused.\n"
                              "upload    cancelling   25% of            4  a  Plan?.txt\n"
                              "upload    failed       25% of            4  b  Plan?.txt\n"
                              "          Not found\n");
    EXPECT_THAT(
        run({"--json"}).output,
        HasSubstr(
            R"({"paused":true,"metered":"yes","transfers":[{"id":"a","kind":"upload","state":"cancelling")"));
    EXPECT_EQ(run({"retry"}).exitCode, 0);
    EXPECT_EQ(index.transfer("b")->state, State::pending);
    for (const auto& wrong : std::vector<std::vector<std::string>>{
             {"cancel"}, {"cancel", "a", "--all"}, {"metered", "perhaps"}, {"pause", "x"}})
        EXPECT_EQ(run(wrong).exitCode, 2);
    EXPECT_EQ(run({"cancel", "c"}).exitCode, 1);

    index.log("upload", "Uploaded", "Plan\x1b.txt");
    const auto activity = runProgram("korvane", {"activity", "--limit", "1"}).output;
    EXPECT_THAT(activity, HasSubstr("  Uploaded: Plan?.txt\n"));
}

TEST_F(QueueCommand, ReachesAQueueThatRunsInAnotherProcess) {
    LocalIndex index(SharedContainer::databaseURL());
    NotificationCenter notifications(SharedContainer::notificationFolder());
    std::counting_semaphore<> posts(0);
    const auto observation =
        notifications.observe(KRIdentifiers::queueChangedNotification, [&] { posts.release(); });
    const auto until = [&](const auto& holds) {
        while (!holds())
            ASSERT_TRUE(posts.try_acquire_for(std::chrono::seconds(20)));
    };
    const auto states = [&] {
        std::map<std::string, State> found;
        for (const auto& record : index.transfers({}, -1))
            found.emplace(record.id, record.state);
        return found;
    };
    using States = std::map<std::string, State>;
    insert(index, "asked before", State::pending);
    EXPECT_EQ(run({"cancel", "asked before"}).exitCode, 0);
    insert(index, "a", State::paused); // by an earlier process
    insert(index, "b", State::pending);

    ChildProcess owner({builtProgram("korvane-test-queue"), "serve"});
    until([&] { return states() == States{{"a", State::running}, {"b", State::running}}; });
    EXPECT_EQ(run({"pause"}).exitCode, 0);
    until([&] { return states() == States{{"a", State::paused}, {"b", State::paused}}; });
    EXPECT_EQ(run({"resume"}).exitCode, 0);
    until([&] { return states() == States{{"a", State::running}, {"b", State::running}}; });
    EXPECT_EQ(run({"cancel", "a"}).exitCode, 0);
    until([&] { return states() == States{{"b", State::running}}; });
    auto later = *index.transfer("b");
    later.id = "later";
    later.state = State::pending;
    later.createdAt = std::chrono::system_clock::now();
    later.nextAttempt = later.createdAt + std::chrono::hours(1);
    index.insertTransfer(later);
    EXPECT_EQ(run({"nudge"}).exitCode, 0);
    until([&] { return states() == States{{"b", State::running}, {"later", State::running}}; });
    EXPECT_EQ(run({"cancel", "--all"}).output, "Cancelling 2 transfers.\n");
    until([&] { return states().empty() && index.values("queue.cancel").empty(); });
    owner.signal(SIGKILL);
}

} // namespace
} // namespace Korvane::Testing
