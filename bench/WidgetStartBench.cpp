// How long a desktop waits for a widget, and how much memory it takes: both programs from exec to exit, with
// their files in the page cache, on a snapshot of eight pins and a photo in a container of the benchmark's
// own.
#include "KorvaneCore/media/Thumbnail.hpp"
#include "KorvaneCore/platform/Bundle.hpp"
#include "KorvaneCore/widget/WidgetStore.hpp"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <utility>

namespace {

using namespace Korvane;

std::filesystem::path scratch() {
    static const std::filesystem::path folder = [] {
        std::string name = (std::filesystem::temp_directory_path() / "korvane-bench-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr)
            std::abort();
        return std::filesystem::path(name);
    }();
    return folder;
}

void publish() {
    ::setenv("XDG_DATA_HOME", scratch().c_str(), 1);
    WidgetSnapshot snapshot;
    for (int i = 0; i < 8; ++i)
        snapshot.pins.push_back(
            {"id-" + std::to_string(i), i % 2 == 0, "Document " + std::to_string(i), "image/png"});
    snapshot.onThisDay = WidgetSnapshot::Photo{
        "id", "lake.jpg", 3, WidgetSnapshot::dayKey(std::chrono::system_clock::now()), "t.jpg"};
    WidgetStore::save(snapshot, makeThumbnail(KORVANE_SOURCE_DIR "/examples/lake.jpg"));
}

/// argv and the place of standard output for a program to start.
class Launch {
public:
    explicit Launch(const std::vector<std::string>& arguments) {
        argv_.reserve(arguments.size() + 1);
        for (const auto& argument : arguments)
            argv_.push_back(const_cast<char*>(argument.c_str()));
        argv_.push_back(nullptr);
    }

    [[nodiscard]] char* const* argv() const { return argv_.data(); }

private:
    std::vector<char*> argv_;
};

bool run(const std::vector<std::string>& arguments) {
    const Launch launch(arguments);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const int error = ::posix_spawn(&pid, launch.argv()[0], &actions, nullptr, launch.argv(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    return error == 0 && ::waitpid(pid, &status, 0) == pid && status == 0;
}

/// "VmHWM" of a process in KiB.
double peakOf(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            return std::stod(line.substr(6));
    return 0;
}

/// The program's own peak resident memory in MiB, read as it is about to exit. (What wait4 reports would
/// count the memory of this process, whose child it was before exec.)
double peakMemory(const std::vector<std::string>& arguments) {
    const Launch launch(arguments);
    const pid_t pid = ::fork();
    if (pid == 0) {
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (nowhere < 0 || ::dup2(nowhere, STDOUT_FILENO) < 0)
            ::_exit(127);
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::raise(SIGSTOP);
        ::execv(launch.argv()[0], launch.argv());
        ::_exit(127);
    }
    double peak = 0;
    int status = 0;
    bool first = true;
    while (::waitpid(pid, &status, 0) == pid && WIFSTOPPED(status)) {
        if (std::exchange(first, false))
            ::ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACEEXIT);
        if (status >> 8 == (SIGTRAP | PTRACE_EVENT_EXIT << 8))
            peak = peakOf(pid);
        const int signal = WSTOPSIG(status) == SIGTRAP || WSTOPSIG(status) == SIGSTOP ? 0 : WSTOPSIG(status);
        ::ptrace(PTRACE_CONT, pid, nullptr, signal);
    }
    return peak / 1024;
}

void measure(benchmark::State& state, std::vector<std::string> arguments) {
    arguments.front() = programPath().parent_path() / arguments.front();
    for (auto _ : state)
        if (!run(arguments))
            return state.SkipWithError("the program failed");
    state.counters["peak_MB"] = peakMemory(arguments);
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    publish();
    const auto add = [](const char* name, const std::vector<std::string>& arguments) {
        benchmark::RegisterBenchmark(name, measure, arguments)->Unit(benchmark::kMillisecond)->UseRealTime();
    };
    const auto picture = (scratch() / "card.png").string();
    add("extension, --help", {"korvane-widget", "--help"});
    add("extension, timeline, pinned",
        {"korvane-widget", "timeline", "app.korvane.widget.pinned", "--family", "large"});
    add("extension, timeline, on this day",
        {"korvane-widget", "timeline", "app.korvane.widget.onthisday", "--family", "medium"});
    add("host, PNG, pinned", {"korvane-widget-host", "render", "app.korvane.widget.pinned", "--family",
                              "large", "--output", picture});
    add("host, PNG, on this day", {"korvane-widget-host", "render", "app.korvane.widget.onthisday",
                                   "--family", "medium", "--output", picture});
    benchmark::RunSpecifiedBenchmarks();
    std::filesystem::remove_all(scratch());
}
