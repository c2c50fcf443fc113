#include "KorvaneCommand/StatusCommand.hpp"

#include "KRCrypto/UnicodeText.hpp"
#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCore/config/KRIdentifiers.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/storage/StatusDatabase.hpp"

#include <boost/describe/class.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <semaphore>

namespace Korvane {

namespace {

struct StatusRequest {
    std::vector<std::filesystem::path> paths; ///< none for the sync roots
    bool json = false;
    bool watch = false;
};

struct PathReport {
    std::string path;
    std::optional<std::string> status; ///< of a folder: the one of its badge
    std::optional<std::string> itemId;
};

BOOST_DESCRIBE_STRUCT(PathReport, (), (path, status, itemId))

/// As paths lie in the database: absolute, without "." and "..", without a slash at the end.
std::string storedForm(const std::filesystem::path& path) {
    const auto normal = std::filesystem::absolute(path).lexically_normal();
    return normal.has_filename() ? normal : normal.parent_path();
}

/// Without a database nothing has a state.
std::string read(StatusDatabase* database, const StatusRequest& request) {
    std::vector<std::string> paths(request.paths.size());
    std::ranges::transform(request.paths, paths.begin(), storedForm);
    if (paths.empty() && database != nullptr)
        paths = database->roots();

    std::vector<PathReport> reports;
    std::string text;
    for (const auto& path : paths) {
        PathReport report{KRCrypto::isUTF8(path) ? path : printable(path), {}, {}};
        if (database != nullptr) {
            if (const auto status = database->aggregateStatus(path))
                report.status = badgeIdentifier(*status);
            report.itemId = database->itemId(path);
        }
        auto column = report.status.value_or("none");
        column.resize(10, ' ');
        text += column + printable(path) + '\n';
        reports.push_back(std::move(report));
    }
    if (request.json)
        return KRJSON::write(reports) + '\n';
    return text.empty() ? "No folder is synced.\n" : text;
}

void print(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

int reportOnce(const StatusRequest& request) {
    std::optional<StatusDatabase> database;
    // Opening would create what is missing, and who only looks leaves no trace.
    if (std::filesystem::exists(SharedContainer::location() / "status.sqlite"))
        database.emplace(SharedContainer::statusDatabaseURL(),
                         NotificationCenter(SharedContainer::notificationFolder()));
    print(read(database ? &*database : nullptr, request));
    return ExitCode::done;
}

[[noreturn]] void watch(const StatusRequest& request) {
    NotificationCenter notifications(SharedContainer::notificationFolder());
    StatusDatabase database(SharedContainer::statusDatabaseURL(), notifications);
    std::counting_semaphore<> posts(1);
    [[maybe_unused]] const auto observation =
        notifications.observe(KRIdentifiers::statusChangedNotification, [&] { posts.release(); });
    for (std::string shown;;) {
        posts.acquire();
        auto current = read(&database, request);
        if (current != shown)
            print(current);
        shown = std::move(current);
    }
}

int report(const StatusRequest& request) {
    if (request.watch)
        watch(request);
    return reportOnce(request);
}

} // namespace

void addStatusCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("status", "Show the sync state");
    const auto request = std::make_shared<StatusRequest>();
    command->add_option("PATH", request->paths, "Files and folders (default: the synced folders)")
        ->type_name("FILE");
    command->add_flag("--json", request->json, "Print one line of JSON");
    command->add_flag("--watch", request->watch, "Print again after each change, until interrupted");
    command->callback([request, &status] { status = report(*request); });
}

} // namespace Korvane
