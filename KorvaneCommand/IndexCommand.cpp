#include "KorvaneCommand/IndexCommand.hpp"

#include "KorvaneCommand/ExistingIndex.hpp"
#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/storage/IndexInspector.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"

#include <boost/describe/class.hpp>
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <ranges>
#include <stdexcept>

namespace Korvane {

namespace {

struct IndexRequest {
    std::string text;       ///< to search for
    std::string path = "/"; ///< to list
    std::int64_t limit = 50;
    bool json = false;
};

struct ItemReport {
    std::string id;
    std::string path; ///< from the root, beginning with "/"
    bool isFolder = false;
    std::int64_t size = 0;
    std::optional<std::string> mime;
    std::optional<IndexItem::Date> mtime;
    std::optional<IndexItem::Date> updatedAt;
};

BOOST_DESCRIBE_STRUCT(ItemReport, (), (id, path, isFolder, size, mime, mtime, updatedAt))

struct VerifyReport {
    bool ok = true;
    std::vector<IndexProblem> problems;
};

BOOST_DESCRIBE_STRUCT(VerifyReport, (), (ok, problems))

ItemReport reportOf(const IndexItem& item, std::string path) {
    return {item.id, std::move(path), item.isFolder, item.size, item.mime, item.mtime, item.updatedAt};
}

void print(const std::vector<ItemReport>& reports, const IndexRequest& request) {
    if (request.json) {
        std::puts(KRJSON::write(reports).c_str());
        return;
    }
    for (const auto& report : reports) {
        const auto date = report.mtime ? report.mtime : report.updatedAt;
        const auto day = date ? fmt::format("{:%F %H:%M}", fmt::gmtime(*date)) : "";
        const auto size = report.isFolder ? std::string("folder") : std::to_string(report.size);
        fmt::print("{:>14}  {:16}  {}{}\n", size, day, printable(report.path),
                   report.isFolder && report.path != "/" ? "/" : "");
    }
}

int printStatistics(const IndexRequest& request) {
    const auto found = IndexInspector(existingIndex()).statistics();
    if (request.json) {
        std::puts(KRJSON::write(found).c_str());
        return ExitCode::done;
    }
    const auto& queue = found.transfers;
    fmt::print("Files      {} ({} bytes)\nFolders    {}\nTrash      {}\nPinned     {}\n", found.files,
               found.bytes, found.folders, found.trashed, found.pinned);
    fmt::print("Transfers  {} pending, {} running, {} paused, {} failed, {} done\n", queue.pending,
               queue.running, queue.paused, queue.failed, queue.done);
    fmt::print("Changes    cursor {}, newest item {}, {} in the journal\n",
               printable(found.lastSeq.value_or("none")), found.maxItemSeq, found.journalEntries);
    fmt::print("Database   version {}, {} bytes\n", found.schemaVersion, found.fileSize);
    return ExitCode::done;
}

/// Empty for a root.
std::string pathFromRoot(LocalIndex& index, const IndexItem& item) {
    auto path = item.parentId ? "/" + item.name : "";
    for (const auto& parent : index.ancestors(item.id)) {
        if (parent.parentId)
            path.insert(0, "/" + parent.name);
    }
    return path;
}

int search(const IndexRequest& request) {
    auto index = LocalIndex::openReadOnly(existingIndex());
    std::vector<ItemReport> reports;
    for (const auto& item : index.search(request.text, request.limit))
        reports.push_back(reportOf(item, pathFromRoot(index, item)));
    print(reports, request);
    return ExitCode::done;
}

int list(const IndexRequest& request) {
    auto index = LocalIndex::openReadOnly(existingIndex());
    std::vector<ItemReport> reports;
    bool found = false;
    for (const auto& root : index.roots()) {
        const auto item = index.item(request.path, root.id);
        if (!item)
            continue;
        found = true;
        const auto path = pathFromRoot(index, *item);
        if (!item->isFolder)
            reports.push_back(reportOf(*item, path));
        for (const auto& child : index.children(item->id))
            reports.push_back(reportOf(child, path + "/" + child.name));
    }
    if (!found)
        throw std::runtime_error("the index knows no " + printable(request.path));
    print(reports, request);
    return ExitCode::done;
}

int verify(const IndexRequest& request) {
    VerifyReport report;
    report.problems = IndexInspector(existingIndex()).problems();
    report.ok = report.problems.empty();
    if (request.json) {
        std::puts(KRJSON::write(report).c_str());
    } else {
        for (const auto& problem : report.problems) {
            fmt::print("{} ({})\n", problem.what, problem.count);
            for (const auto& example : problem.examples)
                fmt::print("    {}\n", printable(example));
        }
        if (report.ok)
            std::puts("The local index is sound.");
    }
    return report.ok ? ExitCode::done : ExitCode::failed;
}

} // namespace

void addIndexCommand(CLI::App& app, int& status) {
    auto* index = app.add_subcommand("index", "Look into local index");
    index->require_subcommand(1);
    const auto request = std::make_shared<IndexRequest>();
    const auto add = [&](const char* name, const char* help, int (*run)(const IndexRequest&)) {
        auto* command = index->add_subcommand(name, help);
        command->add_flag("--json", request->json, "Print one line of JSON");
        command->callback([request, run, &status] { status = run(*request); });
        return command;
    };
    add("stats", "Numbers of files, folders, changes and transfers", printStatistics);
    auto* searching = add("search", "Find files and folders by a part of their name", search);
    searching->add_option("TEXT", request->text, "The part, in any case")->required();
    searching->add_option("--limit", request->limit, "Most results to print")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    add("list", "List a folder", list)
        ->add_option("PATH", request->path, "The folder, from the root")
        ->capture_default_str();
    add("verify", "Look for damage and contradictions", verify)->footer("Exits with 1 when there are any.");
}

} // namespace Korvane
