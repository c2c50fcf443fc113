#include "KorvaneCommand/QueueCommand.hpp"

#include "KorvaneCommand/ExistingIndex.hpp"
#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCommand/terminal/CommonOptions.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/queue/QueueRequests.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>
#include <boost/describe/enum_from_string.hpp>
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace Korvane {

BOOST_DESCRIBE_ENUM(QueueRequests::Metered, automatic, yes, no)

namespace {

using State = TransferRecord::State;
using Metered = QueueRequests::Metered;

constexpr std::int64_t all = -1;

struct QueueRequest {
    std::string id;
    std::string metered;
    std::int64_t limit = 50;
    bool onlyFailed = false;
    bool everything = false;
    bool json = false;
};

struct TransferReport {
    std::string id;
    std::string kind;
    std::string state; ///< "cancelling" once that was asked
    std::string title;
    std::int64_t progress = 0; ///< bytes
    std::int64_t total = 0;    ///< bytes
    std::int64_t attempts = 0;
    std::optional<std::string> lastError;
    TransferRecord::Date createdAt;
    TransferRecord::Date nextAttempt;
};

BOOST_DESCRIBE_STRUCT(TransferReport, (),
                      (id, kind, state, title, progress, total, attempts, lastError, createdAt, nextAttempt))

struct QueueReport {
    bool paused = false;
    Metered metered = Metered::automatic;
    std::vector<TransferReport> transfers;
};

BOOST_DESCRIBE_STRUCT(QueueReport, (), (paused, metered, transfers))

struct CancelReport {
    std::vector<std::string> cancelling;
};

BOOST_DESCRIBE_STRUCT(CancelReport, (), (cancelling))

struct ActivityReport {
    TransferRecord::Date at;
    std::string kind;
    std::string title;
    std::optional<std::string> detail;
    bool isError = false;
};

BOOST_DESCRIBE_STRUCT(ActivityReport, (), (at, kind, title, detail, isError))

/// The index with the requests in it.
struct Queue {
    std::shared_ptr<LocalIndex> index;
    QueueRequests requests;

    explicit Queue(std::shared_ptr<LocalIndex> opened)
        : index(std::move(opened)),
          requests(index, NotificationCenter(SharedContainer::notificationFolder())) {}
};

Queue openToLook() {
    return Queue(std::shared_ptr<LocalIndex>(new LocalIndex(LocalIndex::openReadOnly(existingIndex()))));
}

Queue openToAct() {
    return Queue(std::make_shared<LocalIndex>(existingIndex()));
}

std::string nameOf(State state) {
    switch (state) {
    case State::pending:
        return "pending";
    case State::running:
        return "running";
    case State::failed:
        return "failed";
    case State::done:
        return "done";
    case State::paused:
        return "paused";
    }
    return "unknown";
}

TransferReport reportOf(const TransferRecord& record, bool cancelled) {
    return {
        .id = record.id,
        .kind = record.kind == TransferRecord::Kind::upload ? "upload" : "download",
        .state = cancelled ? "cancelling" : nameOf(record.state),
        .title = record.title,
        .progress = record.progress,
        .total = record.total,
        .attempts = record.attempts,
        .lastError = record.lastError,
        .createdAt = record.createdAt,
        .nextAttempt = record.nextAttempt,
    };
}

std::string percent(const TransferReport& report) {
    constexpr double hundred = 100;
    if (report.total <= 0)
        return "-";
    const double share = static_cast<double>(report.progress) / static_cast<double>(report.total);
    return fmt::format("{:.0f}%", hundred * std::clamp(share, 0.0, 1.0));
}

QueueReport reportOf(Queue& queue) {
    auto records =
        queue.index->transfers({{State::pending, State::running, State::failed, State::paused}}, all);
    std::ranges::sort(records, {}, [](const auto& record) { return std::tie(record.createdAt, record.id); });
    const auto cancelled = queue.requests.cancelled();
    QueueReport report{queue.requests.isPaused(), queue.requests.metered(), {}};
    for (const auto& record : records)
        report.transfers.push_back(reportOf(record, cancelled.contains(record.id)));
    return report;
}

int list(const QueueRequest& request) {
    auto queue = openToLook();
    const auto report = reportOf(queue);
    if (request.json) {
        std::puts(KRJSON::write(report).c_str());
        return ExitCode::done;
    }
    if (report.paused)
        std::puts("Transfers are paused.");
    if (report.transfers.empty())
        std::puts("Nothing waits.");
    for (const auto& transfer : report.transfers) {
        fmt::print("{:8}  {:10}  {:>4} of {:>12}  {}  {}\n", transfer.kind, transfer.state, percent(transfer),
                   transfer.total, printable(transfer.id), printable(transfer.title));
        if (transfer.lastError)
            fmt::print("          {}\n", printable(*transfer.lastError));
    }
    return ExitCode::done;
}

/// Asks something of the queue. A queue that runs does it soon after: its records may show it a little later.
int ask(const QueueRequest& request, const std::function<void(QueueRequests&)>& what) {
    auto queue = openToAct();
    what(queue.requests);
    if (request.json)
        std::puts(KRJSON::write(reportOf(queue)).c_str());
    return ExitCode::done;
}

int pause(const QueueRequest& request) {
    return ask(request, [](QueueRequests& requests) { requests.setPaused(true); });
}

int resume(const QueueRequest& request) {
    return ask(request, [](QueueRequests& requests) { requests.setPaused(false); });
}

int retry(const QueueRequest& request) {
    return ask(request, [](QueueRequests& requests) { requests.retryFailed(); });
}

int nudge(const QueueRequest& request) {
    return ask(request, [](QueueRequests& requests) { requests.nudge(); });
}

int setMetered(const QueueRequest& request) {
    auto metered = Metered::automatic;
    boost::describe::enum_from_string(request.metered.c_str(), metered);
    return ask(request, [metered](QueueRequests& requests) { requests.setMetered(metered); });
}

int cancel(const QueueRequest& request) {
    auto queue = openToAct();
    std::vector<std::string> ids;
    if (!request.id.empty()) {
        const auto record = queue.index->transfer(request.id);
        if (!record || record->state == State::done)
            throw std::runtime_error("no transfer " + printable(request.id) + " waits, runs or has failed");
        ids.push_back(request.id);
    } else {
        ids = queue.index->transferIds(
            request.onlyFailed ? std::vector{State::failed}
                               : std::vector{State::pending, State::running, State::failed, State::paused},
            all);
    }
    queue.requests.cancel(ids);
    if (request.json)
        std::puts(KRJSON::write(CancelReport{ids}).c_str());
    else
        fmt::print("Cancelling {} transfer{}.\n", ids.size(), ids.size() == 1 ? "" : "s");
    return ExitCode::done;
}

int printActivity(const QueueRequest& request) {
    auto index = LocalIndex::openReadOnly(existingIndex());
    std::vector<ActivityReport> reports;
    for (const auto& row : index.recentActivity(request.limit))
        reports.push_back({row.at, row.kind, row.title, row.detail, row.isError});
    if (request.json) {
        std::puts(KRJSON::write(reports).c_str());
        return ExitCode::done;
    }
    for (const auto& report : reports)
        fmt::print("{:%F %H:%M:%S}  {}{}{}\n",
                   fmt::gmtime(std::chrono::time_point_cast<std::chrono::seconds>(report.at)),
                   printable(report.title), report.detail ? ": " : "", printable(report.detail.value_or("")));
    return ExitCode::done;
}

} // namespace

void addQueueCommand(CLI::App& app, int& status) {
    auto* queue = app.add_subcommand("queue", "Show, steer transfers");
    queue->require_subcommand(0, 1);
    const auto request = std::make_shared<QueueRequest>();
    CommonOptions::addJSON(*queue, request->json);
    const auto add = [&](const char* name, const char* help, int (*run)(const QueueRequest&)) {
        auto* command = queue->add_subcommand(name, help);
        CommonOptions::addJSON(*command, request->json);
        command->callback([request, run, &status] { status = run(*request); });
        return command;
    };
    queue->callback([queue, request, &status] {
        if (queue->get_subcommands().empty())
            status = list(*request);
    });
    add("list", "List them (default)", list);
    add("pause", "Hold all transfers back until resumed", pause);
    add("resume", "Let transfers go on", resume);
    add("retry", "Try failed transfers again", retry);
    add("nudge", "Try now what waits for its next attempt", nudge);
    auto* cancelling = add("cancel", "Discard transfers", cancel);
    auto* what = cancelling->add_option_group("what");
    what->add_option("ID", request->id, "The transfer with this identity");
    what->add_flag("--failed", request->onlyFailed, "All that have failed");
    what->add_flag("--all", request->everything, "All");
    what->require_option(1);
    add("metered", "Say whether the network is metered", setMetered)
        ->add_option("SETTING", request->metered, "yes, no, or automatic to follow the system")
        ->required()
        ->check(CLI::IsMember({"automatic", "yes", "no"}));
}

void addActivityCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("activity", "Show past transfers");
    const auto request = std::make_shared<QueueRequest>();
    command->add_option("--limit", request->limit, "Most rows to print")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    CommonOptions::addJSON(*command, request->json);
    command->callback([request, &status] { status = printActivity(*request); });
}

} // namespace Korvane
