// Moves 64 parts of 10 MiB to and from a service in a process of its own, through the transports, through
// bare libcurl and through the curl command.

#include "KorvaneCore/api/BackgroundBlobTransport.hpp"
#include "KorvaneCore/api/ForegroundBlobTransport.hpp"
#include "tests/support/LocalService.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/transport/TransportFixture.hpp"

#include <benchmark/benchmark.h>
#include <boost/asio/co_spawn.hpp>
#include <curl/curl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <stdexcept>

namespace {

using namespace Korvane;

constexpr std::size_t partSize = std::size_t{10} << 20;
constexpr std::size_t partCount = 64;
const std::string session = "bench.transfers";

/// Where to put parts, and from where to get them.
struct Storage {
    pid_t process = -1;
    std::string baseURL;
    std::vector<std::string> parts;
    std::string blob;
};

/// In the service's process: prints what a Storage holds, line by line, and serves until it is killed.
[[noreturn]] void serve(FILE* out) {
    Testing::LocalService service([](ServiceSettings& settings) { settings.chunkSize = partSize - 16; });
    Testing::TestDevice device(service);
    const auto account = device.signUp("a@example.org");
    const auto file = device.upload(account.user.rootFolderId, "name", std::string(partCount * partSize, 'x'),
                                    partSize, "stored");
    const auto upload = device.run(device.api()->createUpload({"put", partCount * partSize, partCount}));
    std::fprintf(out, "%s\n", service->baseURL().c_str());
    for (const auto& part : upload.parts.value())
        std::fprintf(out, "%s\n", part.url.c_str());
    std::fprintf(out, "%s\n", device.run(device.api()->downloadInfo(file.id)).url.c_str());
    std::fclose(out);
    for (;;)
        ::pause();
}

Storage start() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0)
        throw std::runtime_error("no pipe");
    Storage storage;
    storage.process = ::fork();
    if (storage.process == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::close(ends[0]);
        serve(::fdopen(ends[1], "w"));
    }
    ::close(ends[1]);
    auto* const in = ::fdopen(ends[0], "r");
    if (in == nullptr)
        throw std::runtime_error("no stream");
    std::array<char, 4096> line{};
    std::vector<std::string> lines;
    while (std::fgets(line.data(), line.size(), in) != nullptr)
        lines.emplace_back(line.data(), std::string_view(line.data()).size() - 1);
    std::fclose(in);
    storage.baseURL = lines.at(0);
    storage.parts.assign(lines.begin() + 1, lines.begin() + 1 + partCount);
    storage.blob = lines.at(1 + partCount);
    return storage;
}

Storage storage; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables): made before any thread

const KRCrypto::Bytes& part() {
    static const KRCrypto::Bytes bytes(partSize, 'y');
    return bytes;
}

void report(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(partCount * partSize));
}

/// Runs `move` for each part, so many at a time.
void moveAll(int inFlight,
             const std::function<asio::awaitable<void>(std::size_t, KRCrypto::MutableBytes)>& move) {
    asio::io_context context(1);
    std::size_t next = 0;
    for (int i = 0; i < inFlight; ++i)
        asio::co_spawn(
            context,
            [&]() -> asio::awaitable<void> {
                KRCrypto::Bytes buffer(partSize);
                while (next < partCount) {
                    const auto number = next++;
                    co_await move(number, buffer);
                }
            },
            [](const std::exception_ptr& error) {
                if (error)
                    std::rethrow_exception(error);
            });
    context.run();
}

void put(benchmark::State& state, BlobTransport& transport) {
    for (auto _ : state)
        moveAll(static_cast<int>(state.range(0)), [&](std::size_t number, KRCrypto::MutableBytes) {
            return transport.put(storage.parts.at(number), part());
        });
    report(state);
}

void get(benchmark::State& state, BlobTransport& transport) {
    for (auto _ : state)
        moveAll(static_cast<int>(state.range(0)), [&](std::size_t number, KRCrypto::MutableBytes into) {
            return transport.getInto(storage.blob, static_cast<std::int64_t>(number * partSize), into);
        });
    report(state);
}

ForegroundBlobTransport foreground() {
    static asio::io_context context;
    static const Testing::TemporaryFolder folder;
    KRConfiguration configuration;
    configuration.apiBaseURL = KRConfiguration::parseBaseURL(storage.baseURL).value();
    return ForegroundBlobTransport(std::make_shared<APIClient>(
        context.get_executor(), configuration, std::make_shared<FileKeychain>(folder / "keychain.json")));
}

BackgroundBlobTransport& background() {
    static BackgroundBlobTransport transport(session, true);
    return transport;
}

void putForeground(benchmark::State& state) {
    auto transport = foreground();
    put(state, transport);
}

void putBackground(benchmark::State& state) {
    put(state, background());
}

void getForeground(benchmark::State& state) {
    auto transport = foreground();
    get(state, transport);
}

void getBackground(benchmark::State& state) {
    get(state, background());
}

/// What a bare transfer reads from or writes to: memory, copied once each way as libcurl wants it.
struct Piece {
    std::size_t done = 0;
    KRCrypto::Bytes buffer = KRCrypto::Bytes(partSize);

    static std::size_t read(char* to, std::size_t size, std::size_t count, void* self) {
        auto& piece = *static_cast<Piece*>(self);
        const auto length = std::min(size * count, partSize - piece.done);
        std::memcpy(to, part().data() + piece.done, length);
        piece.done += length;
        return length;
    }

    static std::size_t ignore(const char*, std::size_t size, std::size_t count, void*) {
        return size * count;
    }

    static std::size_t write(const char* from, std::size_t size, std::size_t count, void* self) {
        auto& piece = *static_cast<Piece*>(self);
        if (piece.done + size * count > partSize)
            return 0;
        std::memcpy(piece.buffer.data() + piece.done, from, size * count);
        piece.done += size * count;
        return size * count;
    }
};

/// libcurl as its own examples use it: one multi handle in the calling thread, each easy handle kept; the
/// upload buffer in bytes, its default when 0.
void bareCurl(benchmark::State& state, bool isPut) {
    const auto inFlight = static_cast<std::size_t>(state.range(0));
    const auto buffer = static_cast<long>(state.range(1)) << 10;
    auto* multi = curl_multi_init();
    std::vector<Piece> pieces(inFlight);
    std::vector<CURL*> handles;
    for (auto& piece : pieces) {
        auto* handle = curl_easy_init();
        curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, isPut ? &Piece::ignore : &Piece::write);
        curl_easy_setopt(handle, CURLOPT_PRIVATE, &piece);
        if (isPut) {
            curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
            curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(partSize));
            curl_easy_setopt(handle, CURLOPT_READFUNCTION, &Piece::read);
            curl_easy_setopt(handle, CURLOPT_READDATA, &piece);
            curl_easy_setopt(handle, CURLOPT_UPLOAD_BUFFERSIZE, buffer);
        } else {
            curl_easy_setopt(handle, CURLOPT_WRITEDATA, &piece);
            curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, buffer);
        }
        handles.push_back(handle);
    }
    const auto begin = [&](CURL* handle, std::size_t number) {
        Piece* piece = nullptr;
        curl_easy_getinfo(handle, CURLINFO_PRIVATE, &piece);
        piece->done = 0;
        curl_easy_setopt(handle, CURLOPT_URL, (isPut ? storage.parts.at(number) : storage.blob).c_str());
        const auto first = number * partSize;
        const auto range = std::to_string(first) + "-" + std::to_string(first + partSize - 1);
        if (!isPut)
            curl_easy_setopt(handle, CURLOPT_RANGE, range.c_str());
        curl_multi_add_handle(multi, handle);
    };
    for (auto _ : state) {
        std::size_t next = 0;
        std::size_t done = 0;
        for (auto* handle : handles)
            begin(handle, next++);
        while (done < partCount) {
            int running = 0;
            int left = 0;
            curl_multi_perform(multi, &running);
            while (const auto* message = curl_multi_info_read(multi, &left)) {
                auto* handle = message->easy_handle;
                if (message->data.result != CURLE_OK)
                    throw std::runtime_error(curl_easy_strerror(message->data.result));
                curl_multi_remove_handle(multi, handle);
                ++done;
                if (next < partCount)
                    begin(handle, next++);
            }
            if (done < partCount)
                curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
        }
    }
    report(state);
    for (auto* handle : handles)
        curl_easy_cleanup(handle);
    curl_multi_cleanup(multi);
}

void putBareCurl(benchmark::State& state) {
    bareCurl(state, true);
}

void getBareCurl(benchmark::State& state) {
    bareCurl(state, false);
}

/// One curl command for all parts.
void curlCommand(benchmark::State& state, bool isPut) {
    const Testing::TemporaryFolder folder;
    Testing::writeFile(folder / "part", KRCrypto::asText(part()));
    std::ofstream config(folder / "config");
    for (std::size_t number = 0; number < partCount; ++number) {
        const auto first = number * partSize;
        config << (number == 0 ? "" : "next\n") << "silent\nfail\noutput = /dev/null\nurl = \""
               << (isPut ? storage.parts.at(number) : storage.blob) << "\"\n";
        if (isPut)
            config << "upload-file = \"" << (folder / "part").string() << "\"\n";
        else
            config << "range = " << first << "-" << first + partSize - 1 << "\n";
    }
    config.close();
    const auto command = "curl --disable --config " + (folder / "config").string() +
                         (state.range(0) > 1 ? " -Z --parallel-max " + std::to_string(state.range(0)) : "");
    for (auto _ : state)
        if (std::system(command.c_str()) != 0) // NOLINT(cert-env33-c)
            throw std::runtime_error("curl failed");
    report(state);
}

void putCurlCommand(benchmark::State& state) {
    curlCommand(state, true);
}

void getCurlCommand(benchmark::State& state) {
    curlCommand(state, false);
}

void timed(benchmark::internal::Benchmark* each) {
    each->Arg(1)->Arg(3)->UseRealTime()->Unit(benchmark::kMillisecond);
}

/// In flight, and the buffer in KiB.
void timedWithBuffers(benchmark::internal::Benchmark* each) {
    each->ArgsProduct({{1, 3}, {64, 512, 2048}})->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(putForeground)->Apply(timed);
BENCHMARK(putBackground)->Apply(timed);
BENCHMARK(putBareCurl)->Apply(timedWithBuffers);
BENCHMARK(putCurlCommand)->Apply(timed);
BENCHMARK(getForeground)->Apply(timed);
BENCHMARK(getBackground)->Apply(timed);
BENCHMARK(getBareCurl)->ArgsProduct({{1, 3}, {16, 512}})->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(getCurlCommand)->Apply(timed);

/// The most memory a process has used, as the system tells it.
std::string peakOf(const std::string& process) {
    std::ifstream status("/proc/" + process + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            return line.substr(line.find_first_not_of("VmHWM: \t"));
    return "unknown";
}

} // namespace

int main(int argc, char** argv) {
    storage = start();
    {
        const Testing::TemporaryContainer container;
        benchmark::Initialize(&argc, argv);
        benchmark::RunSpecifiedBenchmarks();
        std::printf("Peak memory of this process: %s\n", peakOf("self").c_str());
        if (std::filesystem::exists(SessionFiles::socket(session))) {
            const auto helper = Testing::HelperPeer(session).greet().process;
            std::printf("Peak memory of the helper: %s\n", peakOf(std::to_string(helper)).c_str());
            ::kill(static_cast<pid_t>(helper), SIGTERM);
        }
    }
    ::kill(storage.process, SIGTERM);
    ::waitpid(storage.process, nullptr, 0);
    return 0;
}
