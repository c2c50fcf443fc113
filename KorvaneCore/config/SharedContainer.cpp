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
    return !modified || std::chrono::duration<double>(std::chrono::system_clock::now() - *modified) > age;
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

void removeOld(const fs::path& folder, std::chrono::seconds age) {
    for (const auto& entry : entries<fs::directory_iterator>(folder))
        if (isOlderThan(age, entry))
            removeLogged(entry.path());
}

bool isFile(const fs::directory_entry& entry) {
    return !fs::is_directory(entry.symlink_status());
}

template <class Iterator>
void removeUnreferenced(const fs::path& folder, const std::set<std::string>& referenced,
                        std::chrono::seconds age) {
    for (const auto& entry : entries<Iterator>(folder)) {
        const bool isReferenced = referenced.contains(entry.path().filename().string());
        if (isFile(entry) && !isReferenced && isOlderThan(age, entry))
            removeLogged(entry.path());
    }
}

/// Others may create names where temporary folders are; nobody else's folder will do.
fs::path trusted(fs::path folder) {
    std::error_code error;
    if (fs::symlink_status(folder, error).type() != fs::file_type::not_found)
        requirePrivateFolder(folder);
    return folder;
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
    return trusted(UserFolders::temporary());
}

fs::path url(std::string_view appGroup) {
    createDirectories(location(appGroup));
    // Asked again once it is there: somebody else may have been quicker.
    return location(appGroup);
}

fs::path resolvedLocation() {
    return fs::weakly_canonical(location());
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
    removeOld(plaintextTemp(), age);
}

void purgeCipherStaging(std::chrono::seconds age) {
    removeOld(cipherStaging(), age);
}

void purgeUnreferencedUploadSources(const std::set<std::string>& referenced, std::chrono::seconds graceAge) {
    removeUnreferenced<fs::directory_iterator>(directory("tmp-import"), referenced, graceAge);

    const auto durable = durableUploadDirectories();
    for (const auto& entry : entries<fs::directory_iterator>(directory("uploads")))
        if (!isFile(entry) && std::ranges::find(durable, entry.path()) == durable.end())
            removeUnreferenced<fs::recursive_directory_iterator>(entry.path(), referenced, uploadSourceAge);
}

} // namespace Korvane::SharedContainer
