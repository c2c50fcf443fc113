#pragma once

#include "KorvaneCore/platform/Mutex.hpp"
#include "KorvaneCore/platform/PropertyList.hpp"

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string_view>

namespace Korvane {

/// One suite of settings shared by several processes: a property list file, replaced whole on every change
/// under a file lock, and read again when another process has replaced it. Callable from any thread.
///
/// Reading creates nothing; a missing file is an empty suite. A file that is no property list of at most 1
/// MiB is never overwritten: both reading and writing throw PropertyListError or FileError and leave it as it
/// is.
class UserDefaults {
public:
    explicit UserDefaults(std::filesystem::path file) : file_(std::move(file)) {}

    [[nodiscard]] std::optional<PropertyList> object(std::string_view key) const KR_EXCLUDES(mutex_);

    /// Stores the value, or removes the key when there is none. On the disk on return. Waits for other
    /// writers. A suite that would grow beyond 1 MiB, or hold what cannot be read back, is refused with
    /// PropertyListError.
    void set(std::string_view key, const std::optional<PropertyList>& value) KR_EXCLUDES(mutex_);

    [[nodiscard]] const std::filesystem::path& file() const noexcept { return file_; }

private:
    void refresh() const KR_REQUIRES(mutex_);

    const std::filesystem::path file_;
    mutable Mutex mutex_;
    mutable PropertyList::Dictionary values_ KR_GUARDED_BY(mutex_);

    mutable struct stat version_ KR_GUARDED_BY(mutex_) {}; // of the file that values_ was read from
};

} // namespace Korvane
