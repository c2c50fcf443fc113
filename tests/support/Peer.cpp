// The second process of tests between processes: does one thing, says so in a line, and ends with its input.
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/config/SharedDefaults.hpp"
#include "KorvaneCore/platform/FileEventStream.hpp"
#include "KorvaneCore/platform/NotificationCenter.hpp"

#include <fcntl.h>
#include <sys/file.h>

#include <iostream>
#include <string>

using namespace Korvane;

namespace {

void waitForEndOfInput() {
    for (std::string line; std::getline(std::cin, line);) {
    }
}

/// Takes the lock file as any process would, without the class under test.
void holdLock(const std::string& name) {
    const auto file = SharedContainer::directory("locks") / (name + ".lock");
    const int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const bool held = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
    std::cout << (held ? "held" : "busy") << '\n' << std::flush;
    waitForEndOfInput();
}

void setDefaults(const std::string& prefix, int count) {
    const auto store = SharedDefaults::store();
    for (int i = 0; i < count; ++i)
        store.set(PropertyList{std::int64_t{i}}, prefix + std::to_string(i));
    std::cout << "done" << '\n' << std::flush;
}

/// Follows a folder and prints the flags and paths of each batch as one line.
void watch(const std::string& folder) {
    FileEventOptions options;
    options.latency = std::chrono::milliseconds(10);
    options.rescanInterval = std::chrono::milliseconds(200);
    const auto stream = openFileEventStream({folder}, options, [](const std::vector<FileEvent>& batch) {
        std::uint32_t flags = 0;
        std::string paths;
        for (const auto& event : batch) {
            flags |= event.flags;
            paths += " " + event.path;
        }
        std::cout << flags << paths << '\n' << std::flush;
    });
    std::cout << "watching" << '\n' << std::flush;
    waitForEndOfInput();
}

} // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "hold-lock" && argc == 3)
        holdLock(argv[2]);
    if (command == "set-defaults" && argc == 4)
        setDefaults(argv[2], std::stoi(argv[3]));
    if (command == "post" && argc == 3)
        NotificationCenter(SharedContainer::notificationFolder()).post(argv[2]);
    if (command == "watch" && argc == 3)
        watch(argv[2]);
    if (command == "where")
        std::cout << SharedContainer::url().string() << '\n'
                  << SharedDefaults::store().keyPrefix << '\n'
                  << SharedDefaults::store().defaults->file().string() << '\n';
    return 0;
}
