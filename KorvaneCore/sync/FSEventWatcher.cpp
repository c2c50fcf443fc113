#include "KorvaneCore/sync/FSEventWatcher.hpp"

#include <utility>

namespace Korvane {

namespace {

constexpr std::uint32_t rescanFlags =
    FileEvent::mustScanSubDirs | FileEvent::userDropped | FileEvent::kernelDropped | FileEvent::rootChanged;
constexpr std::chrono::milliseconds latency(300);

} // namespace

FSEventWatcher::FSEventWatcher(std::vector<std::string> paths, Handler handler, FileEventSource source)
    : paths_(std::move(paths)), handler_(std::move(handler)), source_(std::move(source)) {}

void FSEventWatcher::start() {
    if (stream_ != nullptr || paths_.empty())
        return;
    FileEventOptions options;
    options.latency = latency;
    options.queue = queue;
    stream_ = source_(paths_, std::move(options), [this](std::vector<FileEvent> batch) {
        std::vector<std::string> paths;
        paths.reserve(batch.size());
        std::uint32_t flags = 0;
        for (auto& event : batch) {
            paths.push_back(std::move(event.path));
            flags |= event.flags;
        }
        handler_(std::move(paths), (flags & rescanFlags) != 0);
    });
}

void FSEventWatcher::stop() {
    stream_.reset();
}

} // namespace Korvane
