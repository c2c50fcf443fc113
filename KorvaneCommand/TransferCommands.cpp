#include "KorvaneCommand/TransferCommands.hpp"

#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/Hex.hpp"
#include "KRCrypto/UnicodeText.hpp"
#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCommand/ProgressDisplay.hpp"
#include "KorvaneCommand/SyncSession.hpp"
#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Offload.hpp"
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
    /// "done", "unchanged", "failed", "dropped", "cancelled", "skipped", "paused" or "queued"
    std::string state;
    std::optional<std::string> error;
    std::optional<std::string> movedAside; ///< where what was in the place of a download is now
};
BOOST_DESCRIBE_STRUCT(FileReport, (), (name, state, error, movedAside))

struct Enqueued {
    std::string id;
    std::string name;
    std::string destination; ///< of a download
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
    for (const auto& report : reports) {
        std::string remark;
        if (report.error)
            remark = ": " + *report.error;
        else if (report.movedAside)
            remark = ": what was there is now " + *report.movedAside;
        std::printf("%-9s %s%s\n", report.state.c_str(), printable(report.name).c_str(),
                    printable(remark).c_str());
    }
}

/// What the records do not tell.
struct Outcomes {
    std::map<std::string, std::string> dropped;    ///< reasons, by transfer
    std::map<std::string, std::string> movedAside; ///< by destination
};

/// How a record stands now; none while it waits or moves.
std::optional<FileReport> settled(LocalIndex& index, const Outcomes& outcomes, const Enqueued& file) {
    const auto said = [](const std::map<std::string, std::string>& words, const std::string& key) {
        const auto found = words.find(key);
        return found == words.end() ? std::nullopt : std::optional(found->second);
    };
    const auto record = index.transfer(file.id);
    if (!record) {
        const auto reason = said(outcomes.dropped, file.id);
        return FileReport{file.name, reason ? "dropped" : "cancelled", reason, {}};
    }
    if (record->state == TransferRecord::State::done)
        return FileReport{file.name, "done", {}, said(outcomes.movedAside, file.destination)};
    if (record->state == TransferRecord::State::failed)
        return FileReport{file.name, "failed", record->lastError, {}};
    if (record->state == TransferRecord::State::paused)
        return FileReport{file.name, "paused", "transfers go on with \"korvane queue resume\"", {}};
    return std::nullopt;
}

/// Until every file of the batch has settled.
asio::awaitable<void> follow(Workshop& workshop, const Outcomes& outcomes, const std::vector<Enqueued>& files,
                             std::vector<FileReport>& reports) {
    ProgressDisplay display;
    for (auto file = files.begin(); file != files.end();) {
        co_await workshop.queue->delivered(); // the reason of one that was dropped, too
        if (auto report = settled(*workshop.index, outcomes, *file)) {
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
    const auto outcomes = std::make_shared<Outcomes>();
    co_await workshop.queue->addOutcomeHandler([outcomes](TransferOutcome outcome) -> asio::awaitable<void> {
        if (const auto* drop = outcome.as<TransferOutcome::Dropped>())
            outcomes->dropped.emplace(drop->id, drop->reason);
        else if (const auto* download = outcome.as<TransferOutcome::Downloaded>();
                 download != nullptr && download->movedAside)
            outcomes->movedAside.emplace(download->job.destinationPath, download->movedAside->string());
        co_return;
    });
    SyncSession session(workshop);
    if (co_await session.during(follow(workshop, *outcomes, batch.files, reports)))
        co_return reports;
    for (const auto& file : batch.files)
        reports.push_back({file.name, "queued", {}, {}});
    co_return reports;
}

int exitCodeOf(const std::vector<FileReport>& reports) {
    const auto isWell = [](const FileReport& report) {
        return report.state == "done" || report.state == "unchanged" || report.state == "queued" ||
               report.state == "paused";
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
        {co_await workshop.queue->enqueueUpload(std::move(job), newUUID()), std::move(name), {}});
}

/// What goes wrong with one entry keeps none of the others back; what would go wrong with all of them ends
/// the enqueueing, and what is queued by then is carried out.
asio::awaitable<void> attempt(Batch& batch, std::string name, asio::awaitable<void> work) {
    if (batch.failure) {
        batch.others.push_back({std::move(name), "failed", batch.failure, {}});
        co_return;
    }
    std::string reason;
    try {
        co_await std::move(work);
        co_return;
    } catch (const std::exception& error) {
        reason = error.what();
        const auto* refusal = apiError(error);
        const bool concernsAll = refusal != nullptr && refusal->concernsAll();
        if (concernsAll && batch.files.empty())
            throw;
        if (concernsAll)
            batch.failure = reason;
    }
    batch.others.push_back({std::move(name), "failed", std::move(reason), {}});
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
        batch.others.push_back({printable(skipped.relPath), "skipped", skipped.reason, {}});
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

/// Whether the file is there, byte by byte.
bool isHere(const IndexItem& item, const fs::path& destination) {
    const auto stat = localStat(destination);
    return stat && !stat->isDirectory && stat->size == item.size && item.sha256 &&
           fs::is_regular_file(fs::symlink_status(destination)) &&
           KRCrypto::hexString(KRCrypto::ChunkCrypto::sha256OfFile(destination).first) == *item.sha256;
}

asio::awaitable<void> enqueueItem(Workshop& workshop, Batch& batch, IndexItem item, fs::path destination) {
    if (item.isFolder) {
        createDirectories(destination);
        co_return;
    }
    if (co_await offload([&] { return isHere(item, destination); })) {
        batch.others.push_back({item.name, "unchanged", {}, {}});
        co_return;
    }
    DownloadJob job;
    job.fileId = item.id;
    job.destinationPath = destination.string();
    batch.files.push_back({co_await workshop.queue->enqueueDownload(std::move(job), item.name, item.size),
                           item.name, destination.string()});
}

asio::awaitable<void> enqueueBelow(Workshop& workshop, Batch& batch, fs::path folder, IndexedPath entry) {
    requireSafe(entry.relativePath);
    co_await enqueueItem(workshop, batch, std::move(entry.item), folder / entry.relativePath);
}

bool isFolder(const fs::path& path) {
    std::error_code error;
    const auto status = fs::status(path, error);
    if (error && status.type() == fs::file_type::none)
        throw FileError("inspect", path, error);
    return fs::is_directory(status);
}

asio::awaitable<std::vector<FileReport>> downloadAll(Workshop& workshop, const TransferRequest& request) {
    co_await workshop.pull();
    const auto item = workshop.itemAt(request.remote);
    if (!item)
        throw std::runtime_error("\"" + printable(request.remote) + "\" is not in the account");
    auto destination = fs::absolute(request.destination.empty() ? fs::path(".") : request.destination);
    requireUTF8(destination);
    requireSafe(item->name.empty() ? "root" : item->name);
    const bool namesFolder = !destination.has_filename(); // "there/"
    if (namesFolder)
        destination = destination.parent_path();
    if ((namesFolder || isFolder(destination)) && !item->name.empty())
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
