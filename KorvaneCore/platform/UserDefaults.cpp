#include "KorvaneCore/platform/UserDefaults.hpp"

#include "KorvaneCore/platform/FileLock.hpp"
#include "KorvaneCore/platform/Files.hpp"

#include <cerrno>

namespace Korvane {

namespace {

constexpr std::size_t maxFileSize = std::size_t{1} << 20;

bool sameVersion(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

FileLock lockForWriting(const std::filesystem::path& file) {
    createDirectories(file.parent_path());
    FileLock lock(file.string() + ".lock");
    lock.lock();
    return lock;
}

/// The suite's text. What could not be read back is refused: it would lock every process out of the settings.
std::string written(const PropertyList::Dictionary& suite) {
    auto text = formatPropertyList({suite});
    if (text.size() > maxFileSize)
        throw PropertyListError("the settings would grow beyond 1 MiB");
    (void)parsePropertyList(text);
    return text;
}

PropertyList::Dictionary readSuite(const std::filesystem::path& file) {
    const auto root = parsePropertyList(readFile(file, maxFileSize));
    const auto* dictionary = root.as<PropertyList::Dictionary>();
    if (dictionary == nullptr)
        throw PropertyListError(file.string() + " does not hold a dictionary");
    return *dictionary;
}

} // namespace

std::optional<PropertyList> UserDefaults::object(std::string_view key) const {
    const MutexLock lock(mutex_);
    refresh();
    const auto found = values_.find(key);
    if (found == values_.end())
        return std::nullopt;
    return found->second;
}

void UserDefaults::set(std::string_view key, const std::optional<PropertyList>& value) {
    const MutexLock lock(mutex_);
    const FileLock writers = lockForWriting(file_);
    version_ = {}; // read again whatever it says: a writer must start from what is there
    refresh();

    auto changed = values_;
    if (value)
        changed.insert_or_assign(std::string(key), *value);
    else if (changed.erase(std::string(key)) == 0)
        return;
    replaceFile(file_, written(changed));
    refresh();
}

void UserDefaults::refresh() const {
    struct stat now{};
    if (::stat(file_.c_str(), &now) != 0) {
        if (errno != ENOENT && errno != ENOTDIR)
            throw FileError("inspect", file_);
        values_.clear();
        version_ = {};
        return;
    }
    if (sameVersion(now, version_))
        return;
    values_ = readSuite(file_);
    // A replacement between stat and read is noticed at the next call: its version differs from this one.
    version_ = now;
}

} // namespace Korvane
