#pragma once

#include "KorvaneCore/platform/FileEventStream.hpp"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Korvane {

/// The system's stream of file events, passed in wherever a test must steer it: openFileEventStream().
using FileEventSource = std::function<std::unique_ptr<FileEventStream>(
    std::vector<std::string> paths, FileEventOptions options, FileEventHandler handler)>;

/// Tells of the changes below a sync root, in batches at least 0.3 s apart, the first one at once.
///
/// start() and stop() are for one thread at a time; the handler runs on a serial queue of the watcher's own
/// and must neither throw nor stop or destroy the watcher.
class FSEventWatcher {
public:
    /// The label of the serial queue.
    static constexpr auto queue = "app.korvane.fsevents";

    /// `paths` are those that changed; with `rescan` they do not tell all, and everything has to be looked
    /// at.
    using Handler = std::function<void(std::vector<std::string> paths, bool rescan)>;

    FSEventWatcher(std::vector<std::string> paths, Handler handler,
                   FileEventSource source = openFileEventStream);
    FSEventWatcher(const FSEventWatcher&) = delete;
    FSEventWatcher& operator=(const FSEventWatcher&) = delete;
    ~FSEventWatcher() = default;

    /// Watches from now on; nothing happens when it does already, or without paths. Blocks while the folders
    /// are visited. Throws std::system_error when the system has no descriptor or thread left; the watcher is
    /// then stopped.
    void start();

    /// On return the handler neither runs nor will. So it is after destruction.
    void stop();

private:
    std::vector<std::string> paths_;
    Handler handler_;
    FileEventSource source_;
    std::unique_ptr<FileEventStream> stream_;
};

} // namespace Korvane
