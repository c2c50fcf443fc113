#include "KorvaneCore/platform/NotificationCenter.hpp"

#include "KorvaneCore/platform/FileDescriptor.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Inotify.hpp"
#include "KorvaneCore/platform/Log.hpp"

#include <fcntl.h>
#include <sys/inotify.h>

#include <cerrno>
#include <stdexcept>
#include <thread>

namespace Korvane {

namespace {

constexpr std::chrono::seconds retryInterval(1);

std::string checkedName(std::string_view name) {
    if (name.empty() || name == "." || name == ".." ||
        name.find_first_of(std::string_view("/\0", 2)) != name.npos)
        throw std::invalid_argument("not a notification name: " + std::string(name));
    return std::string(name);
}

} // namespace

/// The folder under inotify and the thread that reads its events. A post is a file closed after writing.
class NotificationCenter::Observation::Watch {
public:
    Watch(std::filesystem::path folder, std::string name, std::function<void()> handler)
        : folder_(std::move(folder)), name_(std::move(name)), handler_(std::move(handler)) {
        if (!events_.isOpen())
            throw FileError("observe", folder_);
        watchFolder();
        thread_ = std::thread([this] { run(); });
    }

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    ~Watch() {
        stop_.raise();
        thread_.join();
    }

private:
    void watchFolder() {
        createDirectories(folder_);
        constexpr std::uint32_t mask = IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
        watch_ = events_.add(folder_.c_str(), mask);
        if (watch_ < 0)
            throw FileError("observe", folder_);
    }

    /// After the folder was lost; a failure is logged and tried again at the next turn of run().
    void watchAgain() {
        try {
            watchFolder();
            handler_(); // posts may have been missed meanwhile
        } catch (const FileError& error) {
            Log::error("notifications", error.what());
        }
    }

    void run() {
        while (!stop_.raised()) {
            const auto timeout = watch_ < 0 ? std::optional(retryInterval) : std::nullopt;
            if (events_.wait(stop_, timeout) && posted())
                handler_();
            if (watch_ < 0 && !stop_.raised())
                watchAgain();
        }
    }

    /// Reads all waiting events; whether one of them is, or may stand for, a post of the name.
    bool posted() {
        bool found = false;
        events_.read([&](const Inotify::Event& event) { found |= concerns(event); });
        return found;
    }

    bool concerns(const Inotify::Event& event) {
        if ((event.mask & IN_CLOSE_WRITE) != 0)
            return name_ == event.name;
        if (event.watch == watch_ && (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF)) != 0) {
            // A folder moved away would go on telling of posts that are not ours.
            if ((event.mask & IN_MOVE_SELF) != 0)
                events_.remove(watch_);
            watch_ = -1;
        }
        return (event.mask & IN_Q_OVERFLOW) != 0;
    }

    const std::filesystem::path folder_;
    const std::string name_;
    const std::function<void()> handler_;
    Inotify events_;
    StopSignal stop_;
    int watch_ = -1; // while the folder is lost
    std::thread thread_;
};

NotificationCenter::NotificationCenter(std::filesystem::path folder) : folder_(std::move(folder)) {}

void NotificationCenter::post(std::string_view name) {
    const auto file = folder_ / checkedName(name);
    createDirectories(folder_);
    const FileDescriptor fd(::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (!fd.isOpen())
        throw FileError("post", file);
}

NotificationCenter::Observation NotificationCenter::observe(std::string_view name,
                                                            std::function<void()> handler) {
    return Observation(std::make_unique<Observation::Watch>(folder_, checkedName(name), std::move(handler)));
}

NotificationCenter::Observation::Observation(std::unique_ptr<Watch> watch) : watch_(std::move(watch)) {}

NotificationCenter::Observation::Observation(Observation&&) noexcept = default;
NotificationCenter::Observation& NotificationCenter::Observation::operator=(Observation&&) noexcept = default;
NotificationCenter::Observation::~Observation() = default;

} // namespace Korvane
