#include "KorvaneCommand/TransferCommands.hpp"

#include "KRCrypto/UnicodeText.hpp"
#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCommand/ProgressDisplay.hpp"
#include "KorvaneCommand/SyncSession.hpp"
#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/UUID.hpp"
#include "KorvaneCore/sync/LocalScan.hpp"

#include <boost/describe/class.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>

namespace Korvane {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds lookInterval{200};

struct TransferRequest {
    std::vector<fs::path> paths;
    std::string remote;
    fs::path destination;
    bool json = false;
};

/// What became of one file.
struct FileReport {
    std::string name;
    std::string state; ///< "done", "failed", "dropped", "cancelled", "skipped", "paused" or "queued"
    std::optional<std::string> error;
};
BOOST_DESCRIBE_STRUCT(FileReport, (), (name, state, error))

struct Enqueued {
    std::string id;
    std::string name;
};

struct Batch {
    std::vector<Enqueued> files;
    std::vector<FileReport> others;     ///< what did not come so far
    std::optional<std::string> failure; ///< why nothing more is enqueued
};

void print(const std::vector<FileReport>& reports, bool json) {
    if (json) {
        std::puts(KRJSON::write(reports).c_str());
        return;
    }
    for (const auto& report : reports)
        std::printf("%-8s %s%s%s\n", report.state.c_str(), printable(report.name).c_str(),
                    report.error ? ": " : "", report.error ? printable(*report.error).c_str() : "");
}

using DropReasons = std::map<std::string, std::string>; ///< by transfer

/// How a record stands now; none while it waits or moves.
std::optional<FileReport> settled(LocalIndex& index, const DropReasons& dropped, const Enqueued& file) {
    const auto record = index.transfer(file.id);
    if (!record) {
        const auto reason = dropped.find(file.id);
        return reason == dropped.end() ? FileReport{file.name, "cancelled", std::nullopt}
                                       : FileReport{file.name, "dropped", reason->second};
    }
    if (record->state == TransferRecord::State::done)
        return FileReport{file.name, "done", std::nullopt};
    if (record->state == TransferRecord::State::failed)
        return FileReport{file.name, "failed", record->lastError};
    if (record->state == TransferRecord::State::paused)
        return FileReport{file.name, "paused", "transfers go on with \"korvane queue resume\""};
    return std::nullopt;
}

/// Until every file of the batch has settled.
asio::awaitable<void> follow(Workshop& workshop, const DropReasons& dropped,
                             const std::vector<Enqueued>& files, std::vector<FileReport>& reports) {
    ProgressDisplay display;
    for (auto file = files.begin(); file != files.end();) {
        co_await workshop.queue->delivered(); // the reason of one that was dropped, too
        if (auto report = settled(*workshop.index, dropped, *file)) {
            reports.push_back(std::move(*report));
            ++file;
            continue;
        }
        display.show(co_await workshop.queue->stats());
        co_await systemClock()->sleep(lookInterval);
    }
    display.end();
}

asio::awaitable<std::vector<FileReport>> carryOut(Workshop& workshop, Batch batch) {
    auto reports = std::move(batch.others);
    const auto dropped = std::make_shared<DropReasons>();
    co_await workshop.queue->addOutcomeHandler([dropped](TransferOutcome outcome) -> asio::awaitable<void> {
        if (const auto* drop = outcome.as<TransferOutcome::Dropped>())
            dropped->emplace(drop->id, drop->reason);
        co_return;
    });
    SyncSession session(workshop);
    if (co_await session.during(follow(workshop, *dropped, batch.files, reports)))
        co_return reports;
    for (const auto& file : batch.files)
        reports.push_back({file.name, "queued", std::nullopt});
    co_return reports;
}

int exitCodeOf(const std::vector<FileReport>& reports) {
    const auto isWell = [](const FileReport& report) {
        return report.state == "done" || report.state == "queued" || report.state == "paused";
    };
    return std::ranges::all_of(reports, isWell) ? ExitCode::done : ExitCode::failed;
}

/// Paths are kept as text, in the queue as in the account.
void requireUTF8(const fs::path& path) {
    if (!KRCrypto::isUTF8(path.string()))
        throw std::runtime_error("the path " + printable(path.string()) + " is not UTF-8");
}

asio::awaitable<void> enqueueFile(Workshop& workshop, Batch& batch, fs::path file, std::int64_t size,
                                  std::string folderId) {
    UploadJob job;
    job.sourcePath = file.string();
    job.folderId = std::move(folderId);
    job.name = file.filename().string();
    job.clientFileId = newUUID();
    job.plainSize = size;
    auto name = job.name;
    batch.files.push_back(
        {co_await workshop.queue->enqueueUpload(std::move(job), newUUID()), std::move(name)});
}

/// What goes wrong with one entry keeps none of the others back; what would go wrong with all of them ends
/// the enqueueing, and what is queued by then is carried out.
asio::awaitable<void> attempt(Batch& batch, std::string name, asio::awaitable<void> work) {
    if (batch.failure) {
        batch.others.push_back({std::move(name), "failed", batch.failure});
        co_return;
    }
    std::string reason;
    try {
        co_await std::move(work);
        co_return;
    } catch (const std::exception& error) {
        reason = error.what();
        const auto* refusal = apiError(error);
        const bool concernsAll = refusal != nullptr && (refusal->isRetryable() || refusal->isAuthFatal() ||
                                                        refusal->is<APIError::Cancelled>());
        if (concernsAll && batch.files.empty())
            throw;
        if (concernsAll)
            batch.failure = reason;
    }
    batch.others.push_back({std::move(name), "failed", std::move(reason)});
}

std::string below(const std::string& folder, const std::string& path) {
    return fmt::format("{}/{}", folder, path);
}

asio::awaitable<void> enqueueEntry(Workshop& workshop, Batch& batch, fs::path path, std::string target,
                                   LocalScan::Entry entry) {
    if (entry.stat.isDirectory) {
        co_await workshop.folderAt(below(target, entry.relPath));
        co_return;
    }
    const auto parent = fs::path(entry.relPath).parent_path().string();
    co_await enqueueFile(workshop, batch, path / entry.relPath, entry.stat.size,
                         co_await workshop.folderAt(below(target, parent)));
}

asio::awaitable<void> enqueuePath(Workshop& workshop, Batch& batch, fs::path path, std::string to) {
    const auto stat = localStat(path);
    if (!stat)
        throw std::runtime_error(printable(path.string()) + " does not exist");
    requireUTF8(path);
    if (!stat->isDirectory) {
        co_await enqueueFile(workshop, batch, path, stat->size, co_await workshop.folderAt(to));
        co_return;
    }
    const auto target = below(to, path.filename().string());
    co_await workshop.folderAt(target);
    // What the user names is sent whole, but for the keys of this device.
    const auto scan = scanFolder(path, SharedContainer::location(), Noise::listed);
    for (const auto& skipped : scan.skipped)
        batch.others.push_back({printable(skipped.relPath), "skipped", skipped.reason});
    for (const auto& entry : scan.entries)
        co_await attempt(batch, entry.relPath, enqueueEntry(workshop, batch, path, target, entry));
}

asio::awaitable<std::vector<FileReport>> uploadAll(Workshop& workshop, const TransferRequest& request) {
    co_await workshop.pull();
    Batch batch;
    for (const auto& path : request.paths) {
        auto absolute = fs::absolute(path).lexically_normal();
        if (!absolute.has_filename())
            absolute = absolute.parent_path();
        co_await attempt(batch, printable(path.string()),
                         enqueuePath(workshop, batch, absolute, request.remote));
    }
    co_return co_await carryOut(workshop, std::move(batch));
}

/// Names come from other devices; none may lead out of the folder they belong to.
void requireSafe(const std::string& relPath) {
    for (const auto& part : fs::path(relPath))
        if (part == ".." || part == "." || part.empty() || part == "/" ||
            relPath.find('\0') != std::string::npos)
            throw std::runtime_error("\"" + printable(relPath) + "\" is no name a file can have here");
}

asio::awaitable<void> enqueueItem(Workshop& workshop, Batch& batch, IndexItem item, fs::path destination) {
    if (item.isFolder) {
        createDirectories(destination);
        co_return;
    }
    DownloadJob job;
    job.fileId = item.id;
    job.destinationPath = destination.string();
    batch.files.push_back(
        {co_await workshop.queue->enqueueDownload(std::move(job), item.name, item.size), item.name});
}

asio::awaitable<void> enqueueBelow(Workshop& workshop, Batch& batch, fs::path folder, IndexedPath entry) {
    requireSafe(entry.relativePath);
    co_await enqueueItem(workshop, batch, std::move(entry.item), folder / entry.relativePath);
}

asio::awaitable<std::vector<FileReport>> downloadAll(Workshop& workshop, const TransferRequest& request) {
    co_await workshop.pull();
    const auto item = workshop.itemAt(request.remote);
    if (!item)
        throw std::runtime_error("\"" + printable(request.remote) + "\" is not in the account");
    auto destination = fs::absolute(request.destination.empty() ? fs::path(".") : request.destination);
    requireUTF8(destination);
    requireSafe(item->name.empty() ? "root" : item->name);
    if (fs::is_directory(destination) && !item->name.empty())
        destination /= item->name;
    Batch batch;
    co_await enqueueItem(workshop, batch, *item, destination);
    if (item->isFolder)
        for (const auto& entry : workshop.index->descendants(item->id))
            if (!entry.item.deletedAt)
                co_await attempt(batch, entry.relativePath,
                                 enqueueBelow(workshop, batch, destination, entry));
    co_return co_await carryOut(workshop, std::move(batch));
}

int transfer(const TransferRequest& request,
             asio::awaitable<std::vector<FileReport>> (*work)(Workshop&, const TransferRequest&)) {
    Workshop workshop;
    const auto reports = workshop.client.run(work(workshop, request));
    print(reports, request.json);
    return exitCodeOf(reports);
}

} // namespace

void addTransferCommands(CLI::App& app, int& status) {
    auto* upload = app.add_subcommand("upload", "Upload files or folders");
    const auto up = std::make_shared<TransferRequest>();
    upload->add_option("PATH", up->paths, "Files and folders")->required()->type_name("FILE");
    upload->footer("Exits with 1 when one of the files could not be uploaded; the others are.");
    upload->add_option("--to", up->remote, "Folder of the account, made if missing (default: its root)")
        ->type_name("FOLDER");
    upload->add_flag("--json", up->json, "Print one line of JSON");
    upload->callback([up, &status] { status = transfer(*up, uploadAll); });

    auto* download = app.add_subcommand("download", "Download file or folder");
    const auto down = std::make_shared<TransferRequest>();
    download->add_option("REMOTE", down->remote, "Path in the account")->required();
    download->add_option("DEST", down->destination, "Where to put it (default: here)")->type_name("FILE");
    download->footer("Exits with 1 when one of the files could not be downloaded; the others are.");
    download->add_flag("--json", down->json, "Print one line of JSON");
    download->callback([down, &status] { status = transfer(*down, downloadAll); });
}

} // namespace Korvane
