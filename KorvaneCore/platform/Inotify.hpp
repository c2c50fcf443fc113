#pragma once

#include "KorvaneCore/platform/FileDescriptor.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace Korvane {

/// Tells one thread, waiting in Inotify::wait(), to end. Callable from any thread.
class StopSignal {
public:
    /// Throws std::system_error when the process has no descriptor left.
    StopSignal();

    void raise() noexcept;

    [[nodiscard]] bool raised() const noexcept { return wait(std::chrono::milliseconds(0)); }

    /// Waits for the signal for at most `time`; whether it came.
    [[nodiscard]] bool wait(std::chrono::milliseconds time) const noexcept;

    [[nodiscard]] int descriptor() const noexcept { return fd_.get(); }

private:
    FileDescriptor fd_;
};

/// One inotify instance of the kernel. Used by one thread at a time. Masks are those of <sys/inotify.h>.
class Inotify {
public:
    struct Event {
        int watch;
        std::uint32_t mask;
        std::uint32_t cookie;
        std::string_view name; ///< empty when the watched path itself is meant
    };

    /// How many watches the user may have at once in all programs; none when the system does not tell.
    [[nodiscard]] static std::optional<std::int64_t> watchLimit();

    /// Not open, with errno set, when the user has as many instances as allowed.
    Inotify() noexcept;

    [[nodiscard]] bool isOpen() const noexcept { return fd_.isOpen(); }

    /// The watch on a path; the one it has already when the same file or folder is watched. -1, with errno
    /// set, when the kernel refuses.
    [[nodiscard]] int add(const char* path, std::uint32_t mask) const noexcept;

    void remove(int watch) const noexcept;

    /// Waits for events, for the end or for `timeout`; whether there are events and it is not the end.
    [[nodiscard]] bool wait(const StopSignal& stop,
                            std::optional<std::chrono::milliseconds> timeout) const noexcept;

    /// Hands over the waiting events, at most about as many as the kernel keeps.
    void read(const std::function<void(const Event&)>& handle) const;

private:
    FileDescriptor fd_;
};

} // namespace Korvane
