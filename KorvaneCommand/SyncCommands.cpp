#include "KorvaneCommand/SyncCommands.hpp"

#include "KRCrypto/UnicodeText.hpp"
#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCommand/ProgressDisplay.hpp"
#include "KorvaneCommand/SyncSession.hpp"
#include "KorvaneCommand/terminal/CommonOptions.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/ServiceManager.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneCore/sync/QueuedUploads.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/deferred.hpp>
#include <boost/asio/experimental/parallel_group.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace Korvane {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds lookInterval{500};

struct SyncRequest {
    fs::path folder;
    std::string to;
    std::string root;
    bool json = false;
    bool once = false;
};

struct StatsReport {
    std::int64_t pending = 0;
    std::int64_t running = 0;
    std::int64_t failed = 0;
    std::int64_t paused = 0;
    std::int64_t bytesDone = 0;
    std::int64_t bytesTotal = 0;

    bool operator==(const StatsReport&) const = default;
};
BOOST_DESCRIBE_STRUCT(StatsReport, (), (pending, running, failed, paused, bytesDone, bytesTotal))

void tellOthers(Workshop& workshop) {
    std::vector<StatusDatabase::Root> roots;
    for (const auto& root : SyncRoots::all(*workshop.index))
        roots.push_back({root.path, root.folderId});
    workshop.status->setRoots(roots);
}

bool overlap(const std::string& a, const std::string& b) {
    return a == b || a.starts_with(b + "/") || b.starts_with(a + "/");
}

asio::awaitable<SyncRoot> added(Workshop& workshop, const SyncRequest& request) {
    std::error_code error;
    const auto folder = fs::canonical(request.folder, error).string();
    if (error)
        throw FileError("sync", request.folder, error);
    if (!fs::is_directory(folder))
        throw std::runtime_error(folder + " is no folder");
    if (!KRCrypto::isUTF8(folder))
        throw std::runtime_error("a folder whose path is not UTF-8 cannot be synced");
    const auto container = SharedContainer::resolvedLocation().string();
    if (folder == container || folder.starts_with(container + "/"))
        throw std::runtime_error(folder + " is Korvane's own");
    for (const auto& other : SyncRoots::all(*workshop.index))
        if (overlap(folder, other.path))
            throw std::runtime_error(other.path + " is synced already");
    co_await workshop.pull();
    const auto remote = request.to.empty() ? fs::path(folder).filename().string() : request.to;
    SyncRoot root{newUUID(), folder, co_await workshop.folderAt(remote)};
    SyncRoots::add(*workshop.index, root);
    tellOthers(workshop);
    co_return root;
}

int add(const SyncRequest& request) {
    Workshop workshop;
    const auto root = workshop.client.run(added(workshop, request));
    if (request.json)
        std::puts(KRJSON::write(root).c_str());
    else
        std::printf("%s is synced from the next `korvane run` on.\n", printable(root.path).c_str());
    return ExitCode::done;
}

/// What waits for a folder that is no longer synced is not wanted any more.
void cancelTransfers(Workshop& workshop, const std::string& rootId) {
    using enum TransferRecord::State;
    std::vector<std::string> ids;
    for (const auto& transfer : transfersOf(*workshop.index, rootId, {pending, running, paused, failed}))
        ids.push_back(transfer.id);
    workshop.requests->cancel(ids);
}

int remove(const SyncRequest& request) {
    Workshop workshop;
    const auto roots = SyncRoots::all(*workshop.index);
    const auto path = fs::weakly_canonical(request.root).string();
    const auto found = std::ranges::find_if(
        roots, [&](const SyncRoot& root) { return root.id == request.root || root.path == path; });
    if (found == roots.end())
        throw std::runtime_error("\"" + request.root + "\" is not synced");
    SyncRoots::remove(*workshop.index, found->id);
    cancelTransfers(workshop, found->id);
    workshop.status->clearRoot(found->path);
    tellOthers(workshop);
    if (request.json)
        std::puts(KRJSON::write(*found).c_str());
    else
        std::printf("%s is no longer synced; its files stay where they are.\n",
                    printable(found->path).c_str());
    return ExitCode::done;
}

int list(const SyncRequest& request) {
    const Workshop workshop;
    const auto roots = SyncRoots::all(*workshop.index);
    if (request.json)
        std::puts(KRJSON::write(roots).c_str());
    else if (roots.empty())
        std::puts("No folder is synced.");
    for (const auto& root : roots)
        if (!request.json)
            std::printf("%s  %s\n", root.id.c_str(), printable(root.path).c_str());
    return ExitCode::done;
}

/// What the display shows, as events for programs.
class Events {
public:
    void show(const TransferQueueStats& stats) {
        const StatsReport report{stats.pending, stats.running,   stats.failed,
                                 stats.paused,  stats.bytesDone, stats.bytesTotal};
        if (shown_ == report)
            return;
        shown_ = report;
        std::puts(KRJSON::write(report).c_str());
        std::fflush(stdout);
    }

private:
    std::optional<StatsReport> shown_;
};

/// One line on the transfers, for the service manager when it changes.
class ManagerStatus {
public:
    void show(const TransferQueueStats& stats) {
        auto line = std::to_string(stats.running) + " transfers run, " + std::to_string(stats.pending) +
                    " wait, " + std::to_string(stats.failed) + " failed";
        if (line == shown_)
            return;
        ServiceManager::status(line);
        shown_ = std::move(line);
    }

private:
    std::string shown_;
};

/// The next look at the transfers, which a signal brings forward.
struct Look {
    explicit Look(const asio::any_io_executor& executor) : timer(executor) {}

    asio::steady_timer timer;
    bool isLast = false;
};

/// Runs the coroutine, which a signal cancels. Whether one did.
asio::awaitable<bool> endsBySignal(asio::awaitable<void> work, asio::signal_set& signals) {
    const auto executor = co_await asio::this_coro::executor;
    const auto [order, failure, noSignal, number] =
        co_await asio::experimental::make_parallel_group(
            asio::co_spawn(executor, std::move(work), asio::deferred), signals.async_wait(asio::deferred))
            .async_wait(asio::experimental::wait_for_one(), asio::use_awaitable);
    if (!noSignal)
        co_return true;
    if (failure)
        std::rethrow_exception(failure);
    co_return false;
}

/// Shows what moves until a signal comes, or with `--once` until nothing is left to do: `isInterrupted` is
/// set when a signal came first.
asio::awaitable<void> watch(SyncSession& session, Workshop& workshop, const SyncRequest& request,
                            bool& isInterrupted) {
    const auto executor = co_await asio::this_coro::executor;
    // Shared, since the handler may be called once this coroutine has ended.
    const auto look = std::make_shared<Look>(executor);
    asio::signal_set signals(executor, SIGINT, SIGTERM);
    ServiceManager::ready("Mirroring"); // a first pull may take longer than managers wait
    if (co_await endsBySignal(session.startSync(), signals))
        look->isLast = true;
    else
        signals.async_wait([look](const boost::system::error_code& error, int) {
            look->isLast = !error;
            look->timer.cancel();
        });
    ProgressDisplay display;
    Events events;
    ManagerStatus managerStatus;
    const auto& signInEnd = workshop.client.signInEnd();
    for (int quiet = 0; !look->isLast && !signInEnd && (!request.once || quiet <= 3);) {
        const auto stats = co_await workshop.queue->stats();
        managerStatus.show(stats);
        display.show(stats);
        if (request.json)
            events.show(stats);
        quiet = stats.pending + stats.running == 0 && session.isReconciled() ? quiet + 1 : 0;
        look->timer.expires_after(lookInterval);
        boost::system::error_code woken;
        co_await look->timer.async_wait(asio::redirect_error(asio::use_awaitable, woken));
    }
    isInterrupted = look->isLast;
    ServiceManager::stopping();
    display.end();
    signals.cancel();
    if (signInEnd)
        throw APIError(*signInEnd);
}

/// Whether a signal ended it.
asio::awaitable<bool> mirror(SyncSession& session, Workshop& workshop, const SyncRequest& request) {
    bool isInterrupted = false;
    if (!co_await session.during(watch(session, workshop, request, isInterrupted)))
        throw std::runtime_error("another korvane is at work on this account's transfers");
    co_await workshop.publishWidgets();
    co_return isInterrupted;
}

bool hasTransfers(const Workshop& workshop, TransferRecord::State state) {
    return !workshop.index->transferIds({state}, 1).empty();
}

int run(const SyncRequest& request) {
    Workshop workshop;
    tellOthers(workshop); // whose database may be a new one
    SyncSession session(workshop);
    const bool isInterrupted = workshop.client.run(mirror(session, workshop, request));
    const bool isHeldBack = request.once && hasTransfers(workshop, TransferRecord::State::paused);
    const bool hasFailed = request.once && hasTransfers(workshop, TransferRecord::State::failed);
    auto tally = session.tally();
    tally.transferMilliseconds =
        std::chrono::round<std::chrono::milliseconds>(workshop.transferTime()).count();
    if (request.json)
        std::puts(KRJSON::write(tally).c_str());
    else
        std::printf("%s.\n", tally.text().c_str());
    if (!session.isComplete() || (request.once && isInterrupted))
        std::fputs("korvane: not everything could be mirrored; `korvane status` shows what is left.\n",
                   stderr);
    if (isHeldBack)
        std::fputs("korvane: transfers are paused; `korvane queue resume` lets them go on.\n", stderr);
    if (hasFailed)
        std::fputs(
            "korvane: transfers have failed; `korvane queue` tells why, `korvane queue retry` tries again.\n",
            stderr);
    // Without --once a signal is how it ends, whatever was under way.
    const bool isWhole =
        request.once ? session.isComplete() && !isInterrupted : session.isComplete() || isInterrupted;
    return isWhole && tally.failures == 0 && !isHeldBack && !hasFailed ? ExitCode::done : ExitCode::failed;
}

} // namespace

void addSyncCommands(CLI::App& app, int& status) {
    auto* sync = app.add_subcommand("sync", "Choose mirrored folders");
    sync->require_subcommand(1);
    const auto request = std::make_shared<SyncRequest>();

    auto* adding = sync->add_subcommand("add", "Mirror a folder");
    adding->add_option("FOLDER", request->folder, "The folder")->required()->type_name("DIR");
    adding->add_option("--to", request->to, "Folder of the account (default: of the same name)")
        ->type_name("FOLDER");
    CommonOptions::addJSON(*adding, request->json);
    adding->callback([request, &status] { status = add(*request); });

    auto* removing = sync->add_subcommand("remove", "Mirror it no longer; the files stay");
    removing->add_option("FOLDER", request->root, "The folder, or its identifier")
        ->required()
        ->type_name("DIR");
    CommonOptions::addJSON(*removing, request->json);
    removing->callback([request, &status] { status = remove(*request); });

    auto* listing = sync->add_subcommand("list", "List them");
    CommonOptions::addJSON(*listing, request->json);
    listing->callback([request, &status] { status = list(*request); });

    auto* running = app.add_subcommand("run", "Mirror and transfer now");
    running->footer("Mirrors the synced folders and carries out the waiting transfers until it is "
                    "interrupted. Exits with "
                    "3 when nobody is signed in, or no longer: then someone must sign in first.");
    running->add_flag("--json", request->json, "Print a line of JSON after each change");
    running->add_flag(
        "--once", request->once,
        "End once everything is in the account; with 1 when transfers are paused or have failed");
    running->callback([request, &status] { status = run(*request); });
}

} // namespace Korvane
