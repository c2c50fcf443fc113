// Random operations on the queue, against a simple model of its table. KORVANE_SEED runs one seed,
// KORVANE_LONG many more.
#include "KorvaneCore/api/APIError.hpp"
#include "tests/queue/QueueFixture.hpp"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>

namespace Korvane::Testing {
namespace {

/// What the table should hold. Times are whole seconds, and the back-off has no jitter.
struct Model {
    struct Row {
        std::string id;
        TransferOrigin origin;
        std::optional<std::string> key;
        bool requiresUnmetered = false;
        State state = State::pending;
        int attempts = 0;
        int due = 0;

        bool operator==(const Row&) const = default;
    };

    std::vector<Row> rows; // by age
    bool started = false;
    bool paused = false;
    bool expensive = false;
    int now = 0;

    Row& row(const std::string& id) { return *std::ranges::find(rows, id, &Row::id); }

    std::vector<std::string> idsIn(State state) const {
        std::vector<std::string> ids;
        for (const auto& each : rows) {
            if (each.state == state)
                ids.push_back(each.id);
        }
        return ids;
    }

    void enqueue(Row newer) {
        newer.key = newer.origin.dedupeKey();
        if (newer.key) {
            std::erase_if(rows, [&](const Row& old) {
                return old.key == newer.key && old.state != State::running && old.state != State::done;
            });
            if (std::ranges::any_of(rows, [&](const Row& old) {
                    return old.key == newer.key && old.state == State::running;
                }))
                newer.key.reset();
        }
        newer.state = paused ? State::paused : State::pending;
        newer.due = now;
        rows.push_back(std::move(newer));
    }

    void stopRunning() { change(State::running, paused ? State::paused : State::pending); }

    void change(State from, State to) {
        for (auto& each : rows) {
            if (each.state == from)
                each.state = to;
        }
    }

    void retryFailed() {
        std::erase_if(rows, [&](const Row& old) {
            if (old.state != State::failed || !old.key)
                return false;
            const auto* const self = &old;
            return std::ranges::any_of(rows, [&](const Row& other) {
                const bool newerFailure = other.state == State::failed && &other > self;
                const bool active = other.state != State::failed && other.state != State::done;
                return other.key == old.key && (newerFailure || active);
            });
        });
        for (auto& each : rows) {
            if (each.state == State::failed)
                each = {each.id, each.origin, each.key, each.requiresUnmetered, State::pending, 0, now};
        }
    }

    void fill() {
        if (!started || paused)
            return;
        for (auto& each : rows) {
            const auto running = idsIn(State::running);
            if (running.size() >= 3)
                return;
            const bool blocked =
                each.origin.namesOneThing() &&
                std::ranges::any_of(running, [&](const auto& id) { return row(id).origin == each.origin; });
            if (each.state == State::pending && each.due <= now && !blocked &&
                !(expensive && each.requiresUnmetered))
                each.state = State::running;
        }
    }
};

struct QueueModelTest : QueueTest {
    Model model;
    std::mt19937_64 engine;
    int count = 0;
    std::vector<std::string> history;

    int below(int limit) { return std::uniform_int_distribution(0, limit - 1)(engine); }

    std::optional<std::string> any(const std::vector<std::string>& ids) {
        if (ids.empty())
            return std::nullopt;
        return ids[static_cast<std::size_t>(below(static_cast<int>(ids.size())))];
    }

    void enqueueOne() {
        Model::Row row;
        row.id = std::to_string(++count);
        const auto name = std::to_string(below(4));
        const TransferOrigin origins[] = {syncOrigin(name), TransferOrigin::Camera{name},
                                          TransferOrigin::Manual{}, TransferOrigin::Note{name}};
        row.origin = origins[below(4)];
        row.requiresUnmetered = below(3) == 0;
        auto job = uploadJob(row.origin);
        job.requiresUnmetered = row.requiresUnmetered;
        model.enqueue(row);
        clock->advance(2us); // the age tells them apart
        upload(row.id, job);
    }

    void endOne(const std::string& id) {
        auto& row = model.row(id);
        const int how = below(5);
        if (how == 0) {
            runner->fail(id, TransferQueue::DropReason("gone"));
            std::erase_if(model.rows, [&](const auto& each) { return each.id == id; });
        } else if (how == 1) {
            runner->fail(id, TransferQueue::PermanentFailure("no"));
            row.state = State::failed;
            ++row.attempts;
        } else if (how == 2) {
            runner->fail(id, APIError(APIError::Transport{"cut", true}));
            row.state = State::pending;
            ++row.attempts;
            row.due = model.now + std::min(2 << std::min(row.attempts, 8), 300);
        } else {
            runner->end(id);
            row.state = State::done;
        }
    }

    void cancelSome(int which) {
        const auto id = std::to_string(1 + below(count + 1));
        const bool onlyFailed = which == 1;
        std::erase_if(model.rows, [&](const auto& row) {
            const bool chosen = which == 2 || (onlyFailed ? row.state == State::failed : row.id == id);
            return chosen && row.state != State::done;
        });
        if (which == 0)
            wait(queue.cancel(id));
        else
            wait(queue.cancelAll(onlyFailed));
    }

    void step() {
        const int choice = below(100);
        history.push_back(std::to_string(choice));
        if (choice < 35) {
            enqueueOne();
        } else if (choice < 70) {
            if (const auto id = any(model.idsIn(State::running)))
                endOne(*id);
        } else if (choice < 80) {
            const int seconds = below(40);
            clock->advance(std::chrono::seconds(seconds));
            model.now += seconds;
            wait(queue.start()); // the wake-up may lie later
            model.started = true;
        } else if (choice < 84) {
            model.paused = !model.paused;
            model.stopRunning();
            model.change(model.paused ? State::pending : State::paused,
                         model.paused ? State::paused : State::pending);
            wait(queue.setPaused(model.paused));
        } else if (choice < 87) {
            model.expensive = !model.expensive;
            wait(queue.setExpensiveNetwork(model.expensive));
        } else if (choice < 90) {
            model.started = false;
            model.stopRunning();
            wait(queue.stop());
            wait(queue.finished());
        } else if (choice < 93) {
            for (auto& row : model.rows)
                row.due = row.state == State::pending ? std::min(row.due, model.now) : row.due;
            wait(queue.nudge());
        } else if (choice < 96) {
            model.retryFailed();
            wait(queue.retryFailed());
        } else {
            cancelSome(choice == 99 ? 2 : choice % 2);
        }
        settle();
        model.fill();
    }

    void compare() {
        std::vector<Model::Row> found;
        for (const auto& row : tables.query("SELECT * FROM transfers ORDER BY created_at, rowid")) {
            const auto record = transferRecord(row);
            const auto job = std::get<UploadJob>(transferJob(record));
            const auto due =
                std::chrono::round<std::chrono::seconds>(record.nextAttempt.time_since_epoch()).count();
            found.push_back({record.id, job.origin, row.string("dedupe_key"), job.requiresUnmetered,
                             record.state, static_cast<int>(record.attempts),
                             static_cast<int>(due - 1'800'000'000)});
        }
        ASSERT_EQ(found.size(), model.rows.size());
        for (std::size_t i = 0; i < found.size(); ++i) {
            ASSERT_EQ(found[i].id, model.rows[i].id);
            ASSERT_EQ(found[i].state, model.rows[i].state) << found[i].id;
            ASSERT_EQ(found[i].attempts, model.rows[i].attempts) << found[i].id;
            ASSERT_TRUE(found[i] == model.rows[i])
                << found[i].id << " due " << found[i].due << ", expected " << model.rows[i].due;
        }
        const auto running = model.idsIn(State::running);
        ASSERT_EQ(runner->live(), std::set<std::string>(running.begin(), running.end()));
    }

    void run(std::uint64_t seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        wait(queue.stop());
        wait(queue.finished());
        wait(queue.setPaused(false));
        wait(queue.setExpensiveNetwork(false));
        index->reset();
        model = {};
        model.now = static_cast<int>(
            std::chrono::round<std::chrono::seconds>(clock->now().time_since_epoch()).count() -
            1'800'000'000);
        engine.seed(seed);
        count = 0;
        history.clear();
        for (int i = 0; i < 150 && !HasFatalFailure(); ++i) {
            step();
            compare();
        }
        if (HasFatalFailure()) {
            std::string steps;
            for (const auto& each : history)
                steps += each + " ";
            ADD_FAILURE() << steps;
        }
    }
};

TEST_F(QueueModelTest, RandomOperationsLeaveWhatTheModelSays) {
    if (const char* seed = std::getenv("KORVANE_SEED"))
        return run(std::strtoull(seed, nullptr, 10));
    const int rounds = std::getenv("KORVANE_LONG") != nullptr ? 2000 : 25;
    std::random_device device;
    for (int round = 0; round < rounds && !HasFailure(); ++round)
        run(device());
}

} // namespace
} // namespace Korvane::Testing
