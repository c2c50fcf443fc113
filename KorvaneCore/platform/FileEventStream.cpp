#include "KorvaneCore/platform/FileEventStream.hpp"

#include "KorvaneCore/platform/Log.hpp"
#include "KorvaneCore/platform/WatchedTree.hpp"

#include <pthread.h>

#include <algorithm>
#include <filesystem>
#include <thread>

namespace Korvane {

namespace {

using namespace std::chrono_literals;
using Milliseconds = std::chrono::milliseconds;
using Instant = FileEventBatch::Instant;

constexpr auto readPause = 20ms;  // while a batch waits for its time; the kernel's queue lasts far longer
constexpr auto moveGrace = 10ms;  // between the two events of one move
constexpr auto rootInterval = 1s; // between looks for a missing root

/// Absolute paths without a slash at the end, none below another.
std::vector<WatchedTree::Root> rootsOf(const std::vector<std::string>& paths) {
    std::vector<std::filesystem::path> sorted;
    for (const auto& path : paths) {
        auto normal = std::filesystem::absolute(path).lexically_normal();
        sorted.push_back(normal.has_filename() ? normal : normal.parent_path());
    }
    std::ranges::sort(sorted);
    std::vector<WatchedTree::Root> roots;
    for (const auto& path : sorted) {
        const auto contains = [&path](const WatchedTree::Root& root) {
            const std::filesystem::path outer = root.path;
            return std::ranges::mismatch(outer, path).in1 == outer.end();
        };
        if (std::ranges::none_of(roots, contains))
            roots.push_back({path});
    }
    return roots;
}

std::string settingFor(WatchedTree::Shortage shortage) {
    switch (shortage) {
    case WatchedTree::Shortage::instances:
        return "fs.inotify.max_user_instances";
    case WatchedTree::Shortage::descriptors:
        return "the limit of open files";
    default:
        return "fs.inotify.max_user_watches";
    }
}

class InotifyStream final : public FileEventStream {
public:
    InotifyStream(const std::vector<std::string>& paths, FileEventOptions options, FileEventHandler handler)
        : options_(std::move(options)),
          handler_(std::move(handler)),
          roots_(rootsOf(paths)),
          batch_(options_.latency) {
        watchAgain(0);
        thread_ = std::thread([this] { run(); });
    }

    InotifyStream(const InotifyStream&) = delete;
    InotifyStream& operator=(const InotifyStream&) = delete;

    ~InotifyStream() override {
        stop_.raise();
        thread_.join();
    }

private:
    void run() {
        ::pthread_setname_np(::pthread_self(), options_.queue.substr(0, 15).c_str());
        while (!pauseBeforeReading()) {
            const auto problems = (tree_->wait(timeout()) ? tree_->read() : 0U) | timersDue();
            if (stop_.raised())
                return;
            if (problems != 0)
                watchAgain(problems);
            deliver();
        }
    }

    /// Lets events gather while a batch waits for its time. Whether the stream ends.
    [[nodiscard]] bool pauseBeforeReading() const {
        const auto due = batch_.due();
        const auto now = std::chrono::steady_clock::now();
        if (!due || *due <= now)
            return stop_.raised();
        return stop_.wait(std::min<Milliseconds>(readPause, std::chrono::ceil<Milliseconds>(*due - now)));
    }

    [[nodiscard]] std::optional<Milliseconds> timeout() const {
        std::optional<Instant> first;
        for (const auto& timer : {batch_.due(), movesEnd_, rootCheck_, rescan_})
            if (timer && (!first || *timer < *first))
                first = timer;
        if (!first)
            return std::nullopt;
        return std::chrono::ceil<Milliseconds>(
            std::max(*first - std::chrono::steady_clock::now(), Instant::duration::zero()));
    }

    /// Does what is due. The flags that ask for watching again.
    [[nodiscard]] std::uint32_t timersDue() {
        const auto now = std::chrono::steady_clock::now();
        if (movesEnd_ && *movesEnd_ <= now)
            tree_->endMoves();
        if (!tree_->hasOpenMoves())
            movesEnd_.reset();
        else if (!movesEnd_)
            movesEnd_ = now + moveGrace;

        std::uint32_t problems = 0;
        if (rescan_ && *rescan_ <= now)
            problems |= FileEvent::mustScanSubDirs;
        if (rootCheck_ && *rootCheck_ <= now) {
            rootCheck_ = now + rootInterval;
            if (tree_->missingRootIsBack())
                problems |= FileEvent::rootChanged;
        }
        // Noticed after the start, by a folder that appeared.
        if (!rescan_ && tree_->shortage() != WatchedTree::Shortage::none)
            problems |= FileEvent::mustScanSubDirs;
        return problems;
    }

    /// Everything anew: what was lost or has moved meanwhile is of no concern then. The request to look at
    /// everything comes after the watches are set, so no change falls between.
    void watchAgain(std::uint32_t problems) {
        tree_.reset(); // gives the watches back first
        tree_ = std::make_unique<WatchedTree>(roots_, stop_, batch_);
        movesEnd_.reset();
        if (problems != 0)
            addToAll(problems | FileEvent::mustScanSubDirs);

        const auto now = std::chrono::steady_clock::now();
        rootCheck_ = tree_->lacksRoot() ? std::optional(now + rootInterval) : std::nullopt;
        const bool wasShort = rescan_.has_value();
        rescan_.reset();
        if (tree_->shortage() != WatchedTree::Shortage::none) {
            rescan_ = now + options_.rescanInterval;
            if (!wasShort)
                warn();
        }
    }

    void warn() const {
        Log::warning("fsevents", "the system does not let all folders below " + roots_.front().path +
                                     " be watched; they are looked through every " +
                                     std::to_string(options_.rescanInterval.count() / 1000) +
                                     " s instead. Raise " + settingFor(tree_->shortage()) +
                                     " to see changes at once.");
    }

    void deliver() {
        const auto now = std::chrono::steady_clock::now();
        if (const auto due = batch_.due(); !due || *due > now)
            return;
        if (batch_.overflowed())
            addToAll(FileEvent::userDropped | FileEvent::mustScanSubDirs);
        handler_(batch_.take(now));
    }

    void addToAll(std::uint32_t flags) {
        for (const auto& root : roots_)
            batch_.add(root.path, flags);
    }

    const FileEventOptions options_;
    const FileEventHandler handler_;
    StopSignal stop_;
    std::vector<WatchedTree::Root> roots_;
    FileEventBatch batch_;
    std::unique_ptr<WatchedTree> tree_;
    std::optional<Instant> movesEnd_;
    std::optional<Instant> rootCheck_; // while a root is missing
    std::optional<Instant> rescan_;    // while there is a shortage
    std::thread thread_;
};

} // namespace

std::unique_ptr<FileEventStream> openFileEventStream(const std::vector<std::string>& paths,
                                                     FileEventOptions options, FileEventHandler handler) {
    return std::make_unique<InotifyStream>(paths, std::move(options), std::move(handler));
}

} // namespace Korvane
