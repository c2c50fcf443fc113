#include "KorvaneCore/config/SharedContainer.hpp"

#include "KorvaneCore/config/BuildChannel.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/Mutex.hpp"
#include "KorvaneCore/platform/UserFolders.hpp"

#include <algorithm>
#include <vector>

namespace Korvane::SharedContainer {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds uploadSourceAge{604'800};

struct Override {
    Mutex mutex;
    std::optional<fs::path> url KR_GUARDED_BY(mutex);
};

Override& redirection() {
    static Override instance;
    return instance;
}

/// Age by modification date; an entry without one counts as infinitely old.
bool isOlderThan(std::chrono::seconds age, const fs::directory_entry& entry) {
    const auto modified = modificationDate(entry.path());
    return !modified || std::chrono::system_clock::now() - *modified > age;
}

void removeLogged(const fs::path& path) {
    std::error_code error;
    fs::remove_all(path, error);
    if (error)
        Log::warning("container", "cannot remove an expired file: " + error.message());
}

/// Listed whole before anything is removed: an iterator over a folder that changes may miss entries.
template <class Iterator>
std::vector<fs::directory_entry> entries(const fs::path& folder) {
    std::error_code error;
    std::vector<fs::directory_entry> found;
    for (Iterator entry(folder, error); !error && entry != Iterator(); entry.increment(error))
        found.push_back(*entry);
    if (error)
        throw FileError("list", folder, error);
    return found;
}

void removeExpiredFiles(const fs::path& folder, std::chrono::seconds age) {
    for (const auto& entry : entries<fs::recursive_directory_iterator>(folder))
        if (!fs::is_directory(entry.symlink_status()) && isOlderThan(age, entry))
            removeLogged(entry.path());
}

} // namespace

void setOverrideURL(std::optional<fs::path> url) {
    auto& shared = redirection();
    const MutexLock lock(shared.mutex);
    shared.url = std::move(url);
}

std::optional<fs::path> overrideURL() {
    auto& shared = redirection();
    const MutexLock lock(shared.mutex);
    return shared.url;
}

fs::path location(std::string_view appGroup) {
    if (auto url = overrideURL())
        return *url;
    if (const auto group = UserFolders::groupContainer(appGroup)) {
        const auto channel = BuildChannel::current();
        return channel.empty() ? *group : *group / channel;
    }
    if (const auto support = UserFolders::applicationSupport())
        return *support / "Korvane";
    return UserFolders::temporary();
}

fs::path url(std::string_view appGroup) {
    auto folder = location(appGroup);
    createDirectories(folder);
    // Others may create names in the temporary folder's parent; nobody else's folder will do.
    if (folder == UserFolders::temporary())
        requirePrivateFolder(folder);
    return folder;
}

fs::path directory(std::string_view name, std::string_view appGroup) {
    auto folder = url(appGroup) / name;
    createDirectories(folder);
    return folder;
}

fs::path databaseURL() {
    return url() / "index.sqlite";
}

fs::path statusDatabaseURL() {
    return url() / "status.sqlite";
}

fs::path offline() {
    return directory("Offline");
}

fs::path plaintextTemp() {
    return directory("tmp-plain");
}

fs::path cipherStaging() {
    return directory("tmp-cipher");
}

fs::path notificationFolder() {
    return location() / "Library/Notifications";
}

std::array<fs::path, 2> durableUploadDirectories() {
    return {directory("uploads/camera"), directory("uploads/share-inbox")};
}

void purgePlaintextTemp(std::chrono::seconds age) {
    for (const auto& entry : entries<fs::directory_iterator>(plaintextTemp()))
        if (isOlderThan(age, entry))
            removeLogged(entry.path());
}

void purgeUnreferencedUploadSources(const std::set<std::string>& referenced, std::chrono::seconds graceAge) {
    for (const auto& entry : entries<fs::directory_iterator>(directory("tmp-import")))
        if (!referenced.contains(entry.path().filename().string()) && isOlderThan(graceAge, entry))
            removeLogged(entry.path());

    const auto durable = durableUploadDirectories();
    for (const auto& entry : entries<fs::directory_iterator>(directory("uploads")))
        if (fs::is_directory(entry.symlink_status()) &&
            std::ranges::find(durable, entry.path()) == durable.end())
            removeExpiredFiles(entry.path(), uploadSourceAge);
}

} // namespace Korvane::SharedContainer
