#include "KorvaneCommand/PinCommands.hpp"

#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCommand/Workshop.hpp"
#include "KorvaneCommand/terminal/CommonOptions.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/sync/SyncRoots.hpp"

#include <boost/describe/class.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace Korvane {

namespace {

namespace fs = std::filesystem;

struct PinRequest {
    std::vector<std::string> paths;
    bool json = false;
};

struct PinReport {
    std::string id;
    std::string path; ///< in the account
    bool isFolder = false;
    bool isOffline = false; ///< can be opened without the network, a folder with everything below it
};
BOOST_DESCRIBE_STRUCT(PinReport, (), (id, path, isFolder, isOffline))

/// The item that a file or folder below a sync root is, or will be once it is in the account.
std::optional<IndexItem> mirroredItem(Workshop& workshop, const std::string& path) {
    const auto normal = fs::weakly_canonical(path);
    const auto local = (normal.has_filename() ? normal : normal.parent_path()).string();
    for (const auto& root : SyncRoots::all(*workshop.index))
        if (local == root.path || local.starts_with(root.path + "/"))
            return workshop.index->item(std::string_view(local).substr(root.path.size()), root.folderId);
    return std::nullopt;
}

std::optional<IndexItem> itemNamed(Workshop& workshop, const std::string& path) {
    const bool saysLocal = path.starts_with("./") || path.starts_with("../") || fs::exists(path);
    if (saysLocal)
        if (auto item = mirroredItem(workshop, path))
            return item;
    return workshop.itemAt(path);
}

/// All items that are meant, or none: one that is unknown throws. Asks the service only for what the index
/// does not know.
asio::awaitable<std::vector<IndexItem>> itemsNamed(Workshop& workshop, const PinRequest& request) {
    std::vector<IndexItem> items;
    bool pulled = false;
    for (const auto& path : request.paths) {
        auto item = itemNamed(workshop, path);
        if (!item && !std::exchange(pulled, true)) {
            co_await workshop.pull();
            item = itemNamed(workshop, path);
        }
        if (!item)
            throw std::runtime_error("\"" + printable(path) + "\" is not in the account");
        items.push_back(*std::move(item));
    }
    co_return items;
}

PinReport reportOf(Workshop& workshop, const IndexItem& item) {
    return {item.id, workshop.pathOf(item).value_or(item.name), item.isFolder, workshop.offline->has(item)};
}

void print(const std::vector<PinReport>& reports, bool json) {
    if (json)
        std::puts(KRJSON::write(reports).c_str());
    for (const auto& report : reports)
        if (!json)
            std::printf("%-8s %s%s\n", report.isOffline ? "offline" : "waiting",
                        printable(report.path).c_str(), report.isFolder ? "/" : "");
}

asio::awaitable<void> pinAll(Workshop& workshop, const PinRequest& request, std::vector<PinReport>& reports) {
    const auto items = co_await itemsNamed(workshop, request);
    for (const auto& item : items)
        workshop.offline->pin(item.id);
    co_await workshop.keepOffline();
    co_await workshop.publishWidgets();
    for (const auto& item : items)
        reports.push_back(reportOf(workshop, item));
}

int pin(const PinRequest& request) {
    Workshop workshop;
    std::vector<PinReport> reports;
    workshop.client.run(pinAll(workshop, request, reports));
    print(reports, request.json);
    if (!request.json && !std::ranges::all_of(reports, &PinReport::isOffline))
        std::puts("What waits is fetched while `korvane run` is up.");
    return ExitCode::done;
}

/// What was pinned can be named by its identifier too, as `pins --json` tells it.
asio::awaitable<void> unpinAll(Workshop& workshop, const PinRequest& request,
                               std::vector<PinReport>& reports) {
    const auto pinned = workshop.index->pinnedIds();
    std::vector<std::string> ids;
    for (const auto& path : request.paths) {
        const auto item = pinned.contains(path) ? std::nullopt : itemNamed(workshop, path);
        const auto id = item ? item->id : path;
        if (!pinned.contains(id))
            throw std::runtime_error("\"" + printable(path) + "\" is not pinned");
        ids.push_back(id);
    }
    for (const auto& id : ids)
        workshop.offline->unpin(id);
    co_await workshop.publishWidgets();
    for (const auto& id : ids)
        if (const auto item = workshop.index->item(id))
            reports.push_back(reportOf(workshop, *item));
}

int unpin(const PinRequest& request) {
    Workshop workshop;
    std::vector<PinReport> reports;
    workshop.client.run(unpinAll(workshop, request, reports));
    if (request.json)
        std::puts(KRJSON::write(reports).c_str());
    for (const auto& path : request.paths)
        if (!request.json)
            std::printf("%s is no longer pinned.\n", printable(path).c_str());
    return ExitCode::done;
}

int list(const PinRequest& request) {
    Workshop workshop;
    std::vector<PinReport> reports;
    for (const auto& item : workshop.index->pinnedItems())
        if (workshop.index->isLive(item.id))
            reports.push_back(reportOf(workshop, item));
    print(reports, request.json);
    if (reports.empty() && !request.json)
        std::puts("Nothing is pinned.");
    return ExitCode::done;
}

} // namespace

void addPinCommands(CLI::App& app, int& status) {
    const auto request = std::make_shared<PinRequest>();

    auto* pinning = app.add_subcommand("pin", "Keep offline, in widgets");
    pinning->footer("Shows files and folders in the widgets and keeps copies of them offline.");
    pinning->add_option("PATH", request->paths, "Paths in the account, or below a synced folder")
        ->required()
        ->type_name("FILE");
    CommonOptions::addJSON(*pinning, request->json);
    pinning->callback([request, &status] { status = pin(*request); });

    auto* unpinning = app.add_subcommand("unpin", "Undo a pin");
    unpinning->footer("The offline copies go; the account's files stay.");
    unpinning->add_option("PATH", request->paths, "As for pin, or identifiers")
        ->required()
        ->type_name("FILE");
    CommonOptions::addJSON(*unpinning, request->json);
    unpinning->callback([request, &status] { status = unpin(*request); });

    auto* listing = app.add_subcommand("pins", "List what is pinned");
    CommonOptions::addJSON(*listing, request->json);
    listing->callback([request, &status] { status = list(*request); });
}

} // namespace Korvane
