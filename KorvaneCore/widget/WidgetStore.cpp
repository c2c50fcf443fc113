#include "KorvaneCore/widget/WidgetStore.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/config/SharedDefaults.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"

#include <stdexcept>
#include <string>

namespace Korvane::WidgetStore {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view folderName = "widget";
constexpr std::string_view snapshotName = "snapshot.json";
constexpr std::string_view hideContentKey = "widgets.hideContent";

/// The last component of `name`; empty when that names no file.
std::string fileName(const std::string& name) {
    auto last = fs::path(name).filename().string();
    return last == "." || last == ".." ? std::string() : last;
}

void check(const WidgetSnapshot& snapshot, const std::optional<std::string_view>& thumbnail) {
    if (snapshot.pins.size() > maxPins)
        throw std::invalid_argument("a snapshot holds at most 8 pins");
    if (snapshot.onThisDay.has_value() != thumbnail.has_value())
        throw std::invalid_argument("a photo and its thumbnail are published together");
    if (!thumbnail)
        return;
    const auto& name = snapshot.onThisDay->thumbnailFile;
    if (name.empty() || name != fileName(name) || name == snapshotName)
        throw std::invalid_argument("a thumbnail has a plain file name");
    if (thumbnail->size() > maxThumbnailSize)
        throw std::invalid_argument("the thumbnail is too large");
}

/// Removes every file of the folder but the snapshot and `kept`; leftovers of an interrupted save are among
/// them.
void removeThumbnails(const fs::path& folder, std::string_view kept) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        const auto name = entry->path().filename().string();
        if (name == snapshotName || name == kept)
            continue;
        std::error_code notRemoved;
        fs::remove(entry->path(), notRemoved);
        if (notRemoved)
            throw FileError("remove", entry->path(), notRemoved);
    }
    if (error && error != std::errc::no_such_file_or_directory)
        throw FileError("list", folder, error);
}

} // namespace

bool hideContent() {
    return SharedDefaults::store().boolean(hideContentKey);
}

void setHideContent(bool hide) {
    SharedDefaults::store().set(hide, hideContentKey);
}

fs::path snapshotURL() {
    return SharedContainer::location() / folderName / snapshotName;
}

fs::path thumbnailURL(const WidgetSnapshot::Photo& photo) {
    return SharedContainer::location() / folderName / fileName(photo.thumbnailFile);
}

std::optional<WidgetSnapshot> load() {
    try {
        return KRJSON::read<WidgetSnapshot>(readFile(snapshotURL(), maxSnapshotSize));
    } catch (const std::exception& error) {
        // The widgets show their sign-in message; the log tells why.
        Log::info("widget", error.what());
        return std::nullopt;
    }
}

void save(const WidgetSnapshot& snapshot, std::optional<std::string_view> thumbnail) {
    check(snapshot, thumbnail);
    const auto json = KRJSON::write(snapshot);
    if (json.size() > maxSnapshotSize)
        throw std::invalid_argument("the snapshot is too large");

    const auto folder = SharedContainer::directory(folderName);
    if (thumbnail && snapshot.onThisDay)
        replaceFile(thumbnailURL(*snapshot.onThisDay), *thumbnail);
    replaceFile(folder / snapshotName, json);
    removeThumbnails(folder, snapshot.onThisDay ? snapshot.onThisDay->thumbnailFile : std::string());
}

void clear() {
    const auto snapshot = snapshotURL();
    std::error_code error;
    fs::remove(snapshot, error);
    if (error)
        throw FileError("remove", snapshot, error);
    removeThumbnails(snapshot.parent_path(), {});
}

} // namespace Korvane::WidgetStore
