#include "KorvaneCore/widget/WidgetStore.hpp"

#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/config/SharedDefaults.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/FileLock.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/NotificationCenter.hpp"

#include <stdexcept>
#include <string>

namespace Korvane::WidgetStore {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view folderName = "widget";
constexpr std::string_view snapshotName = "snapshot.json";
constexpr std::string_view hideContentKey = "widgets.hideContent";

/// The last component of `name`, slashes at its end aside; empty when that names no file.
std::string fileName(std::string_view name) {
    name = name.substr(0, name.find_last_not_of('/') + 1);
    const auto last = name.substr(name.rfind('/') + 1);
    return last == "." || last == ".." ? std::string() : std::string(last);
}

void check(const WidgetSnapshot& snapshot, const std::optional<std::string_view>& thumbnail) {
    if (snapshot.pins.size() > maxPins)
        throw std::invalid_argument("a snapshot holds at most 8 pins");
    if (snapshot.contentHidden && snapshot != WidgetSnapshot::hidden)
        throw std::invalid_argument("a hidden snapshot holds no content");
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

bool readsBackAs(const WidgetSnapshot& snapshot, const std::string& json) {
    try {
        return KRJSON::read<WidgetSnapshot>(json) == snapshot;
    } catch (const JSONError&) {
        return false;
    }
}

/// The snapshot's text. What would not be read back as it is (text that is no UTF-8) is refused.
std::string written(const WidgetSnapshot& snapshot) {
    auto json = KRJSON::write(snapshot);
    if (json.size() > maxSnapshotSize)
        throw std::invalid_argument("the snapshot is too large");
    if (!readsBackAs(snapshot, json))
        throw std::invalid_argument("the snapshot holds text that is not UTF-8");
    return json;
}

/// One publisher at a time, in all processes; readers take no lock.
FileLock lockForPublishing() {
    FileLock lock(SharedContainer::directory("locks") / "widget.lock");
    lock.lock();
    return lock;
}

/// Removes every file of the folder but the snapshot and `kept`; leftovers of an interrupted save are among
/// them.
void removeThumbnails(const fs::path& folder, std::string_view kept) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        const auto name = entry->path().filename().string();
        std::error_code notRemoved;
        if (name == snapshotName || name == kept || fs::is_directory(entry->symlink_status(notRemoved)))
            continue;
        fs::remove(entry->path(), notRemoved);
        if (notRemoved)
            throw FileError("remove", entry->path(), notRemoved);
    }
    if (error && error != std::errc::no_such_file_or_directory)
        throw FileError("list", folder, error);
}

WidgetSnapshot replaceAll(const WidgetSnapshot& snapshot, std::string_view json,
                          std::optional<std::string_view> thumbnail) {
    const auto folder = SharedContainer::directory(folderName);
    const auto& photo = snapshot.onThisDay;
    if (thumbnail && photo)
        replaceFile(thumbnailURL(*photo), *thumbnail);
    replaceFile(folder / snapshotName, json);
    removeThumbnails(folder, photo ? photo->thumbnailFile : std::string());
    return snapshot;
}

} // namespace

bool hideContent() {
    return SharedDefaults::store().boolean(hideContentKey);
}

void setHideContent(bool hide) {
    SharedDefaults::store().set(hide, hideContentKey);
    NotificationCenter(SharedContainer::notificationFolder()).post(KRIdentifiers::widgetsChangedNotification);
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

WidgetSnapshot save(const WidgetSnapshot& snapshot, std::optional<std::string_view> thumbnail) {
    check(snapshot, thumbnail);
    const auto json = written(snapshot);

    const FileLock publishers = lockForPublishing();
    // Asked under the lock, so that no publication under way shows what has just been hidden.
    if (hideContent() && !snapshot.contentHidden)
        return replaceAll(WidgetSnapshot::hidden, written(WidgetSnapshot::hidden), std::nullopt);
    return replaceAll(snapshot, json, thumbnail);
}

void clear() {
    const auto snapshot = snapshotURL();
    if (!fs::exists(snapshot.parent_path()))
        return;
    const FileLock publishers = lockForPublishing();
    std::error_code error;
    fs::remove(snapshot, error);
    if (error)
        throw FileError("remove", snapshot, error);
    removeThumbnails(snapshot.parent_path(), {});
}

} // namespace Korvane::WidgetStore
