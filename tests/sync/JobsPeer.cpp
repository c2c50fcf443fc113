// A life of a client that may end too early: JobsPeer FOLDER URL NOW STEP. Reconciles the sync roots of the
// index in FOLDER and does what its queue holds, twice over, and dies of SIGKILL at its STEP-th step (0:
// never). A step is the moment after something took effect, here or at the service. Says each in a line of
// its own, before it dies at it; "key UPLOAD WRAPPED" as an upload's key is stored, "sealed UPLOAD PART
// DIGEST" as a part goes out, and "again" between the rounds.
#include "KRCrypto/Hex.hpp"
#include "KRCrypto/Sha256.hpp"
#include "KorvaneCore/api/ForegroundBlobTransport.hpp"
#include "KorvaneCore/http/CurlSession.hpp"
#include "KorvaneCore/jobs/TransferRunner.hpp"
#include "KorvaneCore/keychain/FileKeychain.hpp"
#include "KorvaneCore/platform/Spawn.hpp"
#include "KorvaneCore/sync/RootReconciler.hpp"

#include <boost/asio/io_context.hpp>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>

using namespace Korvane;

namespace {

std::atomic<int> stepsLeft = 0; // none below 1; NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

/// In one write, so that a kill leaves whole lines.
void say(const std::string& line) {
    const auto text = line + "\n";
    if (::write(STDOUT_FILENO, text.data(), text.size()) < 0)
        std::abort();
}

void step(const std::string& name) {
    say(name);
    if (--stepsLeft == 0)
        ::kill(::getpid(), SIGKILL);
}

/// The service's clock, so that tokens are as fresh here as there.
struct ShiftedClock final : Clock {
    explicit ShiftedClock(std::chrono::seconds now) : ahead(now - systemClock()->now().time_since_epoch()) {}

    [[nodiscard]] Time now() const override { return systemClock()->now() + ahead; }

    [[nodiscard]] Instant monotonic() const override { return systemClock()->monotonic(); }

    asio::awaitable<void> sleep(Duration duration) override { return systemClock()->sleep(duration); }

    Duration ahead;
};

struct SteppedSession final : HTTPSession {
    asio::awaitable<HTTPResponse> send(HTTPRequest request) override {
        const auto path = request.url.substr(0, request.url.find('?'));
        const auto name = request.method + " " + path.substr(path.find('/', std::string("http://").size()));
        constexpr std::string_view parts = "PUT /storage/parts/";
        if (name.starts_with(parts)) {
            auto place = name.substr(parts.size());
            place[place.find('/')] = ' ';
            say("sealed " + place + " " + KRCrypto::hexString(KRCrypto::sha256(*request.body)));
        }
        auto answer = co_await below.send(std::move(request));
        step("after " + name);
        co_return answer;
    }

    CurlSession below;
};

struct SteppedRun final : TransferRun {
    explicit SteppedRun(TransferRun& run) : below(run) {}

    [[nodiscard]] const TransferRecord& record() const noexcept override { return below.record(); }

    void save(const TransferJob& job) override {
        below.save(job);
        const auto* upload = std::get_if<UploadJob>(&job);
        if (upload != nullptr && upload->uploadId)
            say("key " + *upload->uploadId + " " + KRCrypto::hexString(upload->wrappedFileKey.value()));
        step("after saving");
    }

    void setProgress(std::int64_t progress, std::int64_t total) override {
        below.setProgress(progress, total);
    }

    asio::awaitable<void> reportOwnWrite(std::filesystem::path path, LocalStat stat) override {
        step("before an own write is told");
        return below.reportOwnWrite(std::move(path), stat);
    }

    TransferRun& below;
};

struct SteppedRunner final : JobRunner {
    explicit SteppedRunner(JobContext context) : below(std::move(context)) {}

    asio::awaitable<Result> run(TransferRun& run) override {
        SteppedRun stepped(run);
        auto result = co_await below.run(stepped);
        step("after the run");
        co_return result;
    }

    asio::awaitable<void> abortUpload(std::string uploadId) override {
        return below.abortUpload(std::move(uploadId));
    }

    TransferRunner below;
};

struct Client {
    asio::io_context context;
    JobContext job;
    std::shared_ptr<TransferQueue> queue;
    std::unique_ptr<RootReconciler> reconciler;

    Client(const std::filesystem::path& folder, const std::string& url, std::chrono::seconds now) {
        const auto clock = std::make_shared<ShiftedClock>(now);
        const auto keychain = std::make_shared<FileKeychain>(folder / "keychain.json");
        KRConfiguration configuration;
        configuration.apiBaseURL = KRConfiguration::parseBaseURL(url).value();
        job.api = std::make_shared<APIClient>(context.get_executor(), configuration, keychain,
                                              std::make_shared<SteppedSession>(), clock);
        job.index = std::make_shared<LocalIndex>(folder / "index.sqlite");
        job.transport = std::make_shared<ForegroundBlobTransport>(job.api);
        job.masterKey = [key = std::make_shared<const KRCrypto::MasterKey>(KRCrypto::MasterKey::fromBytes(
                             keychain->read(KeychainStore::Key::masterKey).value().view()))]()
            -> asio::awaitable<std::shared_ptr<const KRCrypto::MasterKey>> { co_return key; };
        job.deviceName = []() -> asio::awaitable<std::string> { co_return "Anna's laptop"; };
        job.clock = clock;
        job.chunkSize = 40;
        queue = std::make_shared<TransferQueue>(context.get_executor(), job.index,
                                                std::make_shared<SteppedRunner>(job), clock,
                                                TransferQueue::systemJitter());
        auto status = std::make_shared<StatusDatabase>(folder / "status.sqlite",
                                                       NotificationCenter(folder / "notifications"));
        reconciler = std::make_unique<RootReconciler>(RootReconciler::Parts{
            job, queue, std::move(status), std::make_shared<OwnWriteTracker>(5, clock)});
    }

    /// `settles`: waits for what outcomes queue in turn; without, the next round begins beside the last
    /// outcomes.
    asio::awaitable<void> round(bool settles) {
        for (const auto& root : SyncRoots::all(*job.index))
            co_await reconciler->reconcile(root);
        co_await queue->start();
        for (;;) {
            if (settles)
                co_await queue->delivered();
            const auto stats = co_await queue->stats();
            if (stats.pending + stats.running == 0)
                co_return;
            if (stats.running == 0)
                co_await queue->nudge(); // the waiting times of retries are no matter here
            co_await systemClock()->sleep(std::chrono::milliseconds(1));
        }
    }

    asio::awaitable<void> live() {
        co_await queue->addOutcomeHandler([this](TransferOutcome outcome) -> asio::awaitable<void> {
            step("before the outcome is heard of");
            static_cast<void>(co_await reconciler->settled(std::move(outcome)));
            step("after the outcome is heard of");
        });
        co_await round(false);
        say("again");
        co_await round(true);
        co_await queue->stop();
        co_await queue->finished();
        say("end");
    }
};

} // namespace

// The system's renames are steps, too.

extern "C" int rename(const char* from, const char* to) noexcept {
    const auto result = ::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0);
    step("after a rename");
    return static_cast<int>(result);
}

extern "C" int renameat2(int, const char* from, int, const char* to, unsigned flags) noexcept {
    const auto result = ::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, flags);
    step("after a rename");
    return static_cast<int>(result);
}

int main(int argc, char** argv) {
    if (argc != 5)
        return 2;
    Client client(argv[1], argv[2], std::chrono::seconds(std::atoll(argv[3])));
    stepsLeft = std::atoi(argv[4]);
    spawn(client.context.get_executor(), "peer", client.live());
    client.context.run();
    return 0;
}
