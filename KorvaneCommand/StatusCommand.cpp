#include "KorvaneCommand/StatusCommand.hpp"

#include "KorvaneCommand/ExitCode.hpp"
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

std::string read(StatusDatabase& database, const StatusRequest& request) {
    auto paths = database.roots();
    if (!request.paths.empty()) {
        paths.resize(request.paths.size());
        std::ranges::transform(request.paths, paths.begin(), storedForm);
    }

    std::vector<PathReport> reports;
    std::string text;
    for (const auto& path : paths) {
        const auto status = database.aggregateStatus(path);
        const auto shown = status ? std::optional<std::string>(badgeIdentifier(*status)) : std::nullopt;
        reports.push_back({path, shown, database.itemId(path)});
        auto column = shown.value_or("none");
        column.resize(10, ' ');
        text += column + path + '\n';
    }
    if (request.json)
        return KRJSON::write(reports) + '\n';
    return text.empty() ? "No folder is synced.\n" : text;
}

void print(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

int report(const StatusRequest& request) {
    NotificationCenter notifications(SharedContainer::notificationFolder());
    StatusDatabase database(SharedContainer::statusDatabaseURL(), notifications);
    if (!request.watch) {
        print(read(database, request));
        return ExitCode::done;
    }
    std::counting_semaphore<> posts(1);
    [[maybe_unused]] const auto observation =
        notifications.observe(KRIdentifiers::statusChangedNotification, [&] { posts.release(); });
    for (std::string shown;;) {
        posts.acquire();
        auto current = read(database, request);
        if (current != shown)
            print(current);
        shown = std::move(current);
    }
}

} // namespace

void addStatusCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("status", "The sync state of files and folders");
    const auto request = std::make_shared<StatusRequest>();
    command->add_option("PATH", request->paths, "Files and folders (default: the synced folders)");
    command->add_flag("--json", request->json, "Print one line of JSON");
    command->add_flag("--watch", request->watch, "Print again after each change, until interrupted");
    command->callback([request, &status] { status = report(*request); });
}

} // namespace Korvane
