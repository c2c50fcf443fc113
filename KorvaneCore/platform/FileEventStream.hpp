#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Korvane {

/// Something changed at a path.
struct FileEvent {
    /// Why whoever follows a folder has to look at all of it again; none for an ordinary change.
    enum Flags : std::uint32_t {
        mustScanSubDirs = 0x01,
        userDropped = 0x02,   ///< more changes in one batch than are kept
        kernelDropped = 0x04, ///< the kernel's queue ran over
        rootChanged = 0x20,   ///< the followed path was moved, removed, unmounted, or is back
    };

    std::string path; ///< absolute, any bytes
    std::uint32_t flags = 0;
};

/// Follows folders and everything below them until it is destroyed; the handler then neither runs nor will.
/// Links below the folders are not followed. Must not be destroyed by the handler.
class FileEventStream {
public:
    FileEventStream() = default;
    FileEventStream(const FileEventStream&) = delete;
    FileEventStream& operator=(const FileEventStream&) = delete;
    virtual ~FileEventStream() = default;
};

struct FileEventOptions {
    /// The first event after a pause of this length comes at once, further ones in batches this far apart.
    std::chrono::milliseconds latency{300};

    /// How often a rescan is asked for while the system does not let everything be watched.
    std::chrono::milliseconds rescanInterval{60'000};

    /// The name of the thread that runs the handler; the system shows its first 15 bytes.
    std::string queue;
};

/// Receives one batch, each path once, in the order of the first change. Runs on the stream's thread, never
/// twice at a time. Must not throw.
using FileEventHandler = std::function<void(std::vector<FileEvent> batch)>;

/// Opens a stream of the changes from now on to everything below `paths`, one or more absolute folders.
/// Changes made after the call has returned are reported: files one by one, whatever appears with a new
/// folder included, and both paths of a rename. A file that appears, changes and goes again between two
/// batches is reported, too.
///
/// A path that does not exist, or is lost later, is followed from when it is there (again). When the user's
/// limit of watches or inotify instances is reached, one warning names the setting to raise, and the handler
/// receives mustScanSubDirs for all paths every `rescanInterval` until everything can be watched.
///
/// Blocks while the folders below `paths` are visited. Throws std::system_error when the process has no
/// descriptor or thread left.
[[nodiscard]] std::unique_ptr<FileEventStream> openFileEventStream(const std::vector<std::string>& paths,
                                                                   FileEventOptions options,
                                                                   FileEventHandler handler);

} // namespace Korvane
