#include "KorvaneCore/platform/Process.hpp"

#include "KorvaneCore/platform/Files.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace Korvane::Process {

namespace {

constexpr int signalled = 128;

void require(int error, const std::filesystem::path& program) {
    if (error != 0)
        throw FileError("start", program, error);
}

/// How a program is started, freed at the end.
class SpawnSettings {
public:
    explicit SpawnSettings(const std::filesystem::path& program) {
        require(posix_spawn_file_actions_init(&actions_), program);
        require(posix_spawnattr_init(&attributes_), program);
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            require(posix_spawn_file_actions_addopen(&actions_, fd, "/dev/null", O_RDWR, 0), program);
        require(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1), program);
        sigset_t all;
        sigset_t none;
        sigfillset(&all);
        sigemptyset(&none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }

    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }

    [[nodiscard]] const posix_spawn_file_actions_t* actions() const { return &actions_; }

    [[nodiscard]] const posix_spawnattr_t* attributes() const { return &attributes_; }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

} // namespace

int run(const std::filesystem::path& program, const std::vector<std::string>& arguments) {
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const auto& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const SpawnSettings settings(program);
    pid_t pid = -1;
    require(
        ::posix_spawn(&pid, program.c_str(), settings.actions(), settings.attributes(), argv.data(), environ),
        program);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0)
        if (errno != EINTR)
            throw FileError("wait for", program);
    return WIFEXITED(status) ? WEXITSTATUS(status) : signalled + WTERMSIG(status);
}

void detach() {
    const auto child = ::fork();
    if (child > 0)
        ::_exit(0);
    if (child < 0 || ::setsid() < 0 || ::chdir("/") != 0)
        throw FileError("detach", "the process");
}

int identifier() noexcept {
    return ::getpid();
}

std::string name(int process) {
    constexpr std::size_t longest = 64;
    try {
        auto text = readFile("/proc/" + std::to_string(process) + "/comm", longest);
        return text.substr(0, text.find('\n'));
    } catch (const FileError&) {
        return "?"; // it may have ended meanwhile
    }
}

void surviveFailedWrites() noexcept {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

} // namespace Korvane::Process
