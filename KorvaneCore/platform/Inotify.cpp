#include "KorvaneCore/platform/Inotify.hpp"

#include "KorvaneCore/platform/Files.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <vector>

namespace Korvane {

namespace {

constexpr std::size_t bufferSize = 65'536;
constexpr int readsAtOnce = 16; // of about 1,400 events each

int pollTime(std::optional<std::chrono::milliseconds> timeout) {
    return timeout ? static_cast<int>(std::max<std::int64_t>(timeout->count(), 0)) : -1;
}

} // namespace

StopSignal::StopSignal() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!fd_.isOpen())
        throw std::system_error(errno, std::generic_category(), "cannot make an event descriptor");
}

void StopSignal::raise() noexcept {
    const std::uint64_t one = 1;
    // Fails only when the counter is full, and then it is raised already.
    [[maybe_unused]] const auto written = ::write(fd_.get(), &one, sizeof one);
}

bool StopSignal::wait(std::chrono::milliseconds time) const noexcept {
    pollfd waiting{fd_.get(), POLLIN, 0};
    return ::poll(&waiting, 1, pollTime(time)) > 0;
}

std::optional<std::int64_t> Inotify::watchLimit() {
    constexpr std::size_t longest = 64;
    try {
        return std::stoll(readFile("/proc/sys/fs/inotify/max_user_watches", longest));
    } catch (const std::exception&) {
        return std::nullopt; // no such file, or no number in it
    }
}

Inotify::Inotify() noexcept : fd_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {}

int Inotify::add(const char* path, std::uint32_t mask) const noexcept {
    return ::inotify_add_watch(fd_.get(), path, mask);
}

void Inotify::remove(int watch) const noexcept {
    // Refused for a watch that the kernel has removed itself.
    ::inotify_rm_watch(fd_.get(), watch);
}

bool Inotify::wait(const StopSignal& stop, std::optional<std::chrono::milliseconds> timeout) const noexcept {
    std::array<pollfd, 2> waiting{{{stop.descriptor(), POLLIN, 0}, {fd_.get(), POLLIN, 0}}};
    return ::poll(waiting.data(), waiting.size(), pollTime(timeout)) > 0 && waiting[0].revents == 0 &&
           waiting[1].revents != 0;
}

void Inotify::read(const std::function<void(const Event&)>& handle) const {
    alignas(inotify_event) std::array<char, bufferSize> buffer; // NOLINT(*-init-variables)
    for (int reads = 0; reads < readsAtOnce; ++reads) {
        const ssize_t size = ::read(fd_.get(), buffer.data(), buffer.size());
        if (size <= 0)
            return;
        for (ssize_t offset = 0; offset < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + offset);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            // The name is padded with zeros.
            const auto name = event->len > 0 ? std::string_view(event->name) : std::string_view();
            handle({event->wd, event->mask, event->cookie, name});
        }
    }
}

} // namespace Korvane
