#include "bench/storage/IndexTree.hpp"

#include <fmt/format.h>

#include <array>
#include <chrono>

namespace Korvane::Bench::IndexTree {

namespace {

constexpr std::array<const char*, 16> subjects{
    "Invoice",   "Budget", "Holiday",    "Contract", "Meeting notes", "Draft",   "Recipe",       "Übersicht",
    "Statement", "Report", "Screenshot", "Thesis",   "Budget plan",   "Zeugnis", "Presentation", "Manual"};
constexpr std::array<const char*, 8> kinds{"pdf", "jpg", "docx", "txt", "xlsx", "heic", "png", "mp4"};
constexpr std::int64_t folderEvery = 20;
constexpr std::int64_t archiveSize = 100'000;

/// SplitMix64's mixing function: spreads numbers over all 64 bits.
std::uint64_t mixed(std::int64_t number) {
    auto z = static_cast<std::uint64_t>(number) * 0x9e3779b97f4a7c15ULL;
    z = (z ^ (z >> 30U)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27U)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31U);
}

bool isCamera(std::int64_t number) {
    return number > cameraFolder && number < archiveFolder;
}

bool isFolder(std::int64_t number) {
    return number <= cameraFolder ||
           (!isCamera(number) && number % folderEvery == archiveFolder % folderEvery);
}

/// Any folder made before, of the same part of the tree.
std::int64_t parent(std::int64_t number) {
    if (number <= cameraFolder || number == archiveFolder)
        return 0;
    if (isCamera(number))
        return cameraFolder;
    const auto archiveEnd = archiveFolder + archiveSize;
    const bool archived = number <= archiveEnd;
    const auto first = archived ? archiveFolder : archiveEnd + folderEvery;
    if (number <= first)
        return 0;
    const auto made = static_cast<std::uint64_t>((number - 1 - first) / folderEvery + 1);
    return first + static_cast<std::int64_t>(mixed(number) % made) * folderEvery;
}

std::string name(std::int64_t number) {
    const auto random = mixed(number);
    const auto* subject = subjects[random % subjects.size()];
    const auto year = 2005 + random / 16 % 20;
    if (isFolder(number))
        return fmt::format("{} {}", subject, year);
    if (isCamera(number))
        return fmt::format("IMG_{}{:02}_{:05}{}.jpg", year, random % 12 + 1, number,
                           number % 200 == 7 ? " Quokka" : "");
    return fmt::format("{} {}-{:02} ({}).{}", subject, year, random % 12 + 1, random % 97,
                       kinds[random % kinds.size()]);
}

std::string hex(std::int64_t number) {
    return fmt::format("{:016x}{:016x}{:016x}{:016x}", mixed(number), mixed(number + 1), mixed(number + 2),
                       mixed(number + 3));
}

} // namespace

std::string id(std::int64_t number) {
    const auto random = mixed(number ^ 0x5555);
    return fmt::format("{:08x}-{:04x}-4{:03x}-8{:03x}-{:012x}", random >> 32U, random & 0xffffU,
                       random >> 52U, random >> 20U & 0xfffU, number);
}

IndexItem item(std::int64_t number) {
    IndexItem made;
    const auto random = mixed(number);
    made.id = id(number);
    made.isFolder = isFolder(number);
    if (number > 0)
        made.parentId = id(parent(number));
    made.name = name(number);
    made.metaEnc.assign(180 + made.name.size(), static_cast<std::uint8_t>(random));
    made.nameBlindIndex = hex(number);
    made.createdAt = IndexItem::Date(std::chrono::seconds(1'500'000'000 + random % 200'000'000));
    made.updatedAt = made.createdAt;
    made.seq = number + 1;
    if (made.isFolder)
        return made;
    made.mime = "application/octet-stream";
    made.size = static_cast<std::int64_t>(random % 20'000'000);
    made.sha256 = hex(number + 7);
    made.mtime = made.createdAt;
    made.blobId = hex(number + 11);
    made.encryptedSize = made.size + 29;
    made.chunkCount = 1 + made.size / 10'485'760;
    made.wrappedFileKey = IndexItem::Bytes(61, static_cast<std::uint8_t>(random));
    made.version = 1;
    made.hasThumbnail = random % 2 == 0;
    made.createdByDeviceId = id(-1);
    return made;
}

TransferRecord transfer(std::int64_t number) {
    TransferRecord made;
    made.id = id(number);
    made.payload.assign(600, static_cast<std::uint8_t>(number));
    made.createdAt =
        TransferRecord::Date(std::chrono::seconds(1'700'000'000) + std::chrono::milliseconds(number));
    made.nextAttempt = made.createdAt;
    made.total = 5'000'000;
    made.title = name(number);
    return made;
}

} // namespace Korvane::Bench::IndexTree
