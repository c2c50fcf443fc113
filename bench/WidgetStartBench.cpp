// How long a desktop waits for a widget, and how much memory it takes: both programs from exec to exit, with
// their files in the page cache, on a snapshot of eight pins and a photo in a container of the benchmark's
// own.
#include "KorvaneCore/media/Thumbnail.hpp"
#include "KorvaneCore/platform/Bundle.hpp"
#include "KorvaneCore/widget/WidgetStore.hpp"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

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

/// Runs the program to its end, output discarded; its peak resident memory in KiB, or a negative number.
long run(const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const auto& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const int error = ::posix_spawn(&pid, argv.front(), &actions, nullptr, argv.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    rusage usage{};
    if (error != 0 || ::wait4(pid, &status, 0, &usage) != pid || status != 0)
        return -1;
    return usage.ru_maxrss;
}

void measure(benchmark::State& state, std::vector<std::string> arguments) {
    arguments.front() = programPath().parent_path() / arguments.front();
    long peak = 0;
    for (auto _ : state) {
        const long memory = run(arguments);
        if (memory < 0)
            return state.SkipWithError("the program failed");
        peak = std::max(peak, memory);
    }
    state.counters["peak_MB"] = static_cast<double>(peak) / 1024;
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    publish();
    const auto add = [](const char* name, const std::vector<std::string>& arguments) {
        benchmark::RegisterBenchmark(name, measure, arguments)->Unit(benchmark::kMillisecond)->UseRealTime();
    };
    const auto picture = (scratch() / "card.png").string();
    add("bare process", {"korvane-widget", "--help"});
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
