#pragma once

#include "KorvaneCore/platform/FileDescriptor.hpp"

#include <filesystem>
#include <optional>

namespace Korvane {

/// An advisory lock that every process can take on a file (flock). Held from a successful lock until unlock()
/// or the end of this object, and given up by the system when the process dies.
class FileLock {
public:
    /// No lock: fd() is -1.
    FileLock() = default;

    /// Opens the lock file, creating it (0600) when missing. Takes no lock yet. Throws FileError.
    explicit FileLock(const std::filesystem::path& file);

    /// Blocks the thread until the lock is held. Throws FileError.
    void lock();

    /// Whether the lock is held now; never waits.
    bool tryLock() noexcept;

    /// Unlocks and closes the file; a second call does nothing.
    void unlock() noexcept;

    /// The process that holds a lock on the file, as the kernel lists it: the lock itself is left alone. None
    /// when nobody holds it. Throws FileError when the system does not tell.
    [[nodiscard]] static std::optional<int> holder(const std::filesystem::path& file);

    [[nodiscard]] int fd() const noexcept { return fd_.get(); }

private:
    FileDescriptor fd_;
};

} // namespace Korvane
