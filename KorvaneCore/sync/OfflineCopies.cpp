#include "KorvaneCore/sync/OfflineCopies.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/config/KRIdentifiers.hpp"
#include "KorvaneCore/jobs/FileNames.hpp"
#include "KorvaneCore/jobs/SourceContent.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Offload.hpp"
#include "KorvaneCore/queue/QueueRequests.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

namespace Korvane {

namespace {

constexpr auto category = "sync";

bool isAlphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// Identifiers and names come from the service: neither may lead out of the folder.
std::optional<std::string> fileName(const IndexItem& item) {
    constexpr std::size_t longestId = 64;
    const bool isPlain =
        !item.id.empty() && item.id.size() <= longestId &&
        std::ranges::all_of(item.id, [](char c) { return isAlphanumeric(c) || c == '-' || c == '_'; });
    if (!isPlain)
        return std::nullopt;
    const auto extension = FileNames::split(item.name).extension;
    const bool isUsable = !extension.empty() && std::ranges::all_of(extension.substr(1), isAlphanumeric);
    return item.id + std::string(isUsable ? extension : std::string_view());
}

void removeCopy(LocalIndex& index, const std::filesystem::path& folder, const LocalIndex::BaseEntry& base) {
    const auto path = folder / base.relPath;
    if (LocalCopies::untouched(path, base)) {
        std::error_code error;
        std::filesystem::remove(path, error);
        if (error)
            throw FileError("remove", path, error);
    } else if (localStat(path)) {
        Log::warning(category, "an offline copy was changed by somebody and is left in place");
    }
    index.removeBase(LocalCopies::offlineRoot, base.relPath, false);
}

} // namespace

OfflineCopies::OfflineCopies(Parts parts) : parts_(std::move(parts)), copies_(parts_.index, parts_.folder) {}

void OfflineCopies::pin(const std::string& itemId) {
    parts_.index->setPinned(itemId, true);
    announce();
}

void OfflineCopies::unpin(const std::string& itemId) {
    parts_.index->setPinned(itemId, false);
    const auto files = wanted();
    removeUnwanted(files);
    std::vector<std::string> useless;
    for (const auto& [fileId, records] : downloads())
        if (!files.contains(fileId))
            useless.insert(useless.end(), records.begin(), records.end());
    if (!useless.empty())
        parts_.requests->cancel(useless);
    announce();
}

asio::awaitable<void> OfflineCopies::keep() {
    const auto files = co_await offload([self = shared_from_this()] { return self->missing(); });
    if (files.empty())
        co_return;
    const auto underWay = co_await offload([self = shared_from_this()] { return self->downloads(); });
    for (const auto& file : files) {
        if (underWay.contains(file.item.id) || co_await adopt(file))
            continue;
        DownloadJob job;
        job.fileId = file.item.id;
        job.destinationPath = file.destination.string();
        job.origin = TransferOrigin::Pinned{};
        job.guardLocal = file.guard;
        co_await parts_.queue->enqueueDownload(std::move(job), file.item.name, file.item.size);
    }
}

asio::awaitable<void> OfflineCopies::settled(TransferOutcome outcome) {
    const auto* done = outcome.as<TransferOutcome::Downloaded>();
    if (done == nullptr || done->job.origin.as<TransferOrigin::Pinned>() == nullptr)
        co_return;
    const std::filesystem::path path = done->job.destinationPath;
    if (path.parent_path() != parts_.folder)
        co_return;
    const auto item = parts_.index->item(done->file.id);
    const bool isKnown = item && item->version == done->file.version;
    record(done->file.id, done->file.version, path, done->placed, isKnown ? item->sha256 : std::nullopt);
}

bool OfflineCopies::has(const IndexItem& item) {
    if (!item.isFolder)
        return copies_.of(item).has_value();
    return std::ranges::all_of(parts_.index->descendants(item.id), [this](const IndexedPath& below) {
        return below.item.isFolder || copies_.of(below.item).has_value();
    });
}

void OfflineCopies::removeAll(LocalIndex& index, const std::filesystem::path& folder) {
    for (const auto& [relPath, base] : index.baseEntries(LocalCopies::offlineRoot))
        removeCopy(index, folder, base);
}

OfflineCopies::Files OfflineCopies::wanted() {
    Files files;
    for (auto& pinned : parts_.index->pinnedItems()) {
        if (!parts_.index->isLive(pinned.id))
            continue;
        if (!pinned.isFolder) {
            files.try_emplace(pinned.id, std::move(pinned));
            continue;
        }
        for (auto& below : parts_.index->descendants(pinned.id))
            if (!below.item.isFolder)
                files.try_emplace(below.item.id, std::move(below.item));
    }
    return files;
}

void OfflineCopies::removeUnwanted(const Files& wanted) {
    for (const auto& [relPath, base] : parts_.index->baseEntries(LocalCopies::offlineRoot))
        if (!wanted.contains(base.itemId))
            removeCopy(*parts_.index, parts_.folder, base);
}

std::vector<OfflineCopies::Missing> OfflineCopies::missing() {
    const auto files = wanted();
    removeUnwanted(files);
    std::map<std::string, LocalIndex::BaseEntry> recorded;
    for (auto& [relPath, base] : parts_.index->baseEntries(LocalCopies::offlineRoot))
        recorded.emplace(base.itemId, base);
    std::vector<Missing> missing;
    for (const auto& [id, item] : files) {
        if (copies_.of(item))
            continue;
        const auto before = recorded.find(id);
        const auto name = before == recorded.end() ? fileName(item) : std::optional(before->second.relPath);
        if (!name) {
            Log::warning(category, "a pinned file has an identifier that no file here can be named after");
            continue;
        }
        const auto destination = parts_.folder / *name;
        std::optional<LocalStat> guard;
        if (before != recorded.end())
            if (const auto copy = LocalCopies::untouched(destination, before->second))
                guard = copy->stat;
        missing.push_back({item, destination, LocalCopies::lookAt(destination), guard});
    }
    return missing;
}

/// The records of pinned files that wait, run or have failed, by file.
std::map<std::string, std::set<std::string>> OfflineCopies::downloads() {
    using State = TransferRecord::State;
    std::map<std::string, std::set<std::string>> found;
    for (const auto& record :
         parts_.index->transfers({{State::pending, State::running, State::failed, State::paused}}, -1)) {
        if (record.kind != TransferRecord::Kind::download)
            continue;
        const auto job = readableJob(record);
        const auto* download = job ? std::get_if<DownloadJob>(&*job) : nullptr;
        if (download != nullptr && download->origin.as<TransferOrigin::Pinned>() != nullptr)
            found[download->fileId].insert(record.id);
    }
    return found;
}

/// A download whose end was not recorded, because the process ended first, need not be made again.
asio::awaitable<bool> OfflineCopies::adopt(const Missing& file) {
    const auto& stat = file.present;
    if (!stat || stat->isDirectory || stat->size != file.item.size || !file.item.sha256)
        co_return false;
    try {
        if ((co_await SourceContent::read(file.destination, *stat))->sha256() != *file.item.sha256)
            co_return false;
    } catch (const KRCrypto::KRCryptoError&) {
        co_return false; // somebody is writing to it; the download moves it aside
    } catch (const FileError&) {
        co_return false; // likewise when it cannot be read
    }
    record(file.item.id, file.item.version, file.destination, *stat, file.item.sha256);
    co_return true;
}

void OfflineCopies::record(const std::string& itemId, std::int64_t version, const std::filesystem::path& path,
                           const LocalStat& stat, const std::optional<std::string>& sha256) {
    parts_.index->setBase(LocalCopies::offlineRoot, {path.filename().string(), itemId, false, version,
                                                     stat.size, stat.mtime, stat.inode, sha256});
    parts_.index->setPinnedVersion(itemId, version, path.string());
}

void OfflineCopies::announce() {
    parts_.notifications.post(KRIdentifiers::widgetsChangedNotification);
}

} // namespace Korvane
