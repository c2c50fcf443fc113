// What following a tree of 50,000 folders costs: setting it up, memory, and CPU time while nothing happens;
// and how long a change takes to arrive.

#include "KorvaneCore/platform/FileEventStream.hpp"
#include "bench/CPUTime.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/resource.h>

#include <fstream>
#include <semaphore>
#include <thread>

namespace {

using namespace Korvane;
using namespace std::chrono_literals;

constexpr int folderCount = 50'000;
constexpr auto idleTime = 10s;

/// 50 folders in each of 50 folders in each of 20 folders.
const std::filesystem::path& tree() {
    static const Testing::TemporaryFolder folder;
    static const bool isMade = [] {
        for (int i = 0; i < folderCount; ++i)
            std::filesystem::create_directories(folder / ("Projects " + std::to_string(i / 2500)) /
                                                ("module " + std::to_string(i / 50 % 50)) /
                                                ("sources " + std::to_string(i % 50)));
        return true;
    }();
    (void)isMade;
    return folder.path();
}

/// In MiB.
double residentMemory() {
    std::ifstream file("/proc/self/statm");
    double pages = 0;
    file >> pages >> pages;
    return pages * 4096 / (1 << 20);
}

void setUp(benchmark::State& state) {
    const std::string root = tree();
    for (auto _ : state) {
        auto stream = openFileEventStream({root}, {}, [](const auto&) {});
        state.PauseTiming();
        stream.reset();
        state.ResumeTiming();
    }
    state.counters["folders/s"] =
        benchmark::Counter(folderCount, benchmark::Counter::kIsIterationInvariantRate);
}

void idle(benchmark::State& state) {
    const std::string root = tree();
    ::malloc_trim(0);
    const auto memory = residentMemory();
    const auto stream = openFileEventStream({root}, {}, [](const auto&) {});
    state.counters["MiB"] = residentMemory() - memory;
    const auto cpu = cpuTime(RUSAGE_SELF);
    for (auto _ : state)
        std::this_thread::sleep_for(idleTime);
    state.counters["CPU ms"] = 1000 * (cpuTime(RUSAGE_SELF) - cpu);
}

void oneChange(benchmark::State& state) {
    const auto file = tree() / "Projects 7/module 7/sources 7/file";
    FileEventOptions options;
    options.latency = 0ms; // each change is the first
    std::counting_semaphore<> arrived(0);
    const auto stream = openFileEventStream({tree()}, options, [&](const auto&) { arrived.release(); });
    const std::ofstream keepOpen(file);
    for (auto _ : state) {
        std::filesystem::resize_file(file, 0);
        arrived.acquire();
    }
}

BENCHMARK(setUp)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(idle)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);
BENCHMARK(oneChange)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
