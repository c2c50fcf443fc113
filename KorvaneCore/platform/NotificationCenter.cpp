#include "KorvaneCore/platform/NotificationCenter.hpp"

#include "KorvaneCore/platform/FileDescriptor.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/Log.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <thread>

namespace Korvane {

namespace {

constexpr int retryInterval = 1000; // ms

std::string checkedName(std::string_view name) {
    if (name.empty() || name == "." || name == ".." ||
        name.find_first_of(std::string_view("/\0", 2)) != name.npos)
        throw std::invalid_argument("not a notification name: " + std::string(name));
    return std::string(name);
}

[[noreturn]] void fail(std::string_view operation, const std::filesystem::path& path) {
    throw FileError(operation, path, {errno, std::generic_category()});
}

} // namespace

/// The folder under inotify and the thread that reads its events. A post is a file closed after writing.
class NotificationCenter::Observation::Watch {
public:
    Watch(std::filesystem::path folder, std::string name, std::function<void()> handler)
        : folder_(std::move(folder)),
          name_(std::move(name)),
          handler_(std::move(handler)),
          events_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
          stop_(::eventfd(0, EFD_CLOEXEC)) {
        if (!events_.isOpen() || !stop_.isOpen())
            fail("observe", folder_);
        watchFolder();
        thread_ = std::thread([this] { run(); });
    }

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    ~Watch() {
        const std::uint64_t one = 1;
        // Cannot fail: the counter is far from full.
        if (::write(stop_.get(), &one, sizeof one) == sizeof one)
            thread_.join();
    }

private:
    void watchFolder() {
        createDirectories(folder_);
        constexpr std::uint32_t mask = IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
        watch_ = ::inotify_add_watch(events_.get(), folder_.c_str(), mask);
        if (watch_ < 0)
            fail("observe", folder_);
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
        std::array<pollfd, 2> waiting{{{events_.get(), POLLIN, 0}, {stop_.get(), POLLIN, 0}}};
        while (true) {
            if (::poll(waiting.data(), waiting.size(), watch_ < 0 ? retryInterval : -1) < 0 &&
                errno != EINTR) {
                Log::error("notifications", "observing ended: poll failed");
                return;
            }
            if (waiting[1].revents != 0)
                return;
            if (waiting[0].revents != 0 && posted())
                handler_();
            if (watch_ < 0)
                watchAgain();
        }
    }

    /// Reads all waiting events; whether one of them is, or may stand for, a post of the name.
    bool posted() {
        bool found = false;
        alignas(inotify_event) std::array<char, 4096> buffer{};
        ssize_t size = 0;
        while ((size = ::read(events_.get(), buffer.data(), buffer.size())) > 0) {
            for (ssize_t offset = 0; offset < size;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + offset);
                offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
                found |= concerns(*event);
            }
        }
        return found;
    }

    bool concerns(const inotify_event& event) {
        if ((event.mask & IN_CLOSE_WRITE) != 0)
            return event.len > 0 && name_ == event.name;
        if (event.wd == watch_ && (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF)) != 0) {
            // A folder moved away would go on telling of posts that are not ours.
            if ((event.mask & IN_MOVE_SELF) != 0)
                ::inotify_rm_watch(events_.get(), watch_);
            watch_ = -1;
        }
        return (event.mask & IN_Q_OVERFLOW) != 0;
    }

    const std::filesystem::path folder_;
    const std::string name_;
    const std::function<void()> handler_;
    FileDescriptor events_;
    FileDescriptor stop_;
    int watch_ = -1; // while the folder is lost
    std::thread thread_;
};

NotificationCenter::NotificationCenter(std::filesystem::path folder) : folder_(std::move(folder)) {}

void NotificationCenter::post(std::string_view name) {
    const auto file = folder_ / checkedName(name);
    createDirectories(folder_);
    const FileDescriptor fd(::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (!fd.isOpen())
        fail("post", file);
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
