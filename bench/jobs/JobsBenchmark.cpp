// Sends files to a service in a process of its own and fetches them again, through the queue and its jobs:
//
//   jobs-benchmark COUNT SIZE [LATENCY]
//
// files of SIZE bytes each; LATENCY in milliseconds is added to every answer of the service. Beside each
// figure stands what its parts take alone, in the same run: the calls of the jobs, as many files at a time
// and one after the other for each; the bytes put or fetched, as many at a time; the bytes hashed and sealed.

#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/Sha256.hpp"
#include "KorvaneCore/api/ForegroundBlobTransport.hpp"
#include "KorvaneCore/jobs/TransferRunner.hpp"
#include "KorvaneCore/platform/RunToEnd.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"
#include "bench/CPUTime.hpp"
#include "tests/support/LocalService.hpp"

#include <boost/asio/io_context.hpp>
#include <boost/asio/redirect_error.hpp>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <random>

namespace {

using namespace Korvane;
namespace fs = std::filesystem;

constexpr double mebibyte = 1 << 20;
constexpr int atOnce = TransferQueue::defaultMaxConcurrent;

/// In MiB, since resetPeak().
double peakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmHWM:") {
            double kibibytes = 0;
            status >> kibibytes;
            return kibibytes / 1024;
        }
    return 0;
}

void resetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

double secondsFor(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// A service in a process of its own. Made before any thread.
class ServiceProcess {
public:
    explicit ServiceProcess(std::chrono::milliseconds latency) {
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0)
            std::abort();
        process_ = ::fork();
        if (process_ == 0)
            serve(latency, ends[1]);
        ::close(ends[1]);
        for (char byte = 0; ::read(ends[0], &byte, 1) == 1;)
            url_ += byte;
        ::close(ends[0]);
    }

    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    ~ServiceProcess() {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }

    [[nodiscard]] const std::string& url() const { return url_; }

private:
    [[noreturn]] void serve(std::chrono::milliseconds latency, int out) const {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ServiceSettings settings;
        settings.folder = folder_.path();
        settings.port = 0;
        settings.latency = latency;
        const Service service(std::move(settings));
        if (::write(out, service.baseURL().data(), service.baseURL().size()) < 0)
            std::abort();
        ::close(out);
        for (;;)
            ::pause();
    }

    Testing::TemporaryFolder folder_;
    pid_t process_ = -1;
    std::string url_;
};

struct Client {
    explicit Client(const std::string& url) {
        KRConfiguration configuration;
        if (const auto parsed = KRConfiguration::parseBaseURL(url))
            configuration.apiBaseURL = *parsed;
        job.api = std::make_shared<APIClient>(context.get_executor(), configuration,
                                              std::make_shared<FileKeychain>(folder / "keychain.json"));
        job.index = std::make_shared<LocalIndex>(folder / "index.sqlite");
        job.transport = std::make_shared<ForegroundBlobTransport>(job.api);
        job.masterKey = [this]() -> asio::awaitable<std::shared_ptr<const KRCrypto::MasterKey>> {
            co_return masterKey;
        };
        job.deviceName = []() -> asio::awaitable<std::string> { co_return "bench"; };
        run(signUp());
    }

    void run(asio::awaitable<void> work) { runToEnd(context, std::move(work)); }

    asio::awaitable<void> signUp() {
        SignupRequest request;
        request.email = "bench@example.org";
        request.authKey = KRCrypto::SecretBytes::copyOf(std::string(32, 'a'));
        request.recoveryAuthKey = KRCrypto::SecretBytes::copyOf(std::string(32, 'b'));
        request.kdfSalt.resize(16);
        request.wrappedMasterKey.resize(61);
        request.wrappedMasterKeyRecovery.resize(61);
        request.deviceName = "bench";
        const auto answer = co_await job.api->signup(request);
        co_await job.api->setTokens({answer.accessToken, answer.refreshToken});
        root = answer.user.rootFolderId;
    }

    /// Runs `work` for each number below `count`, some at a time.
    void each(std::int64_t count, const std::function<asio::awaitable<void>(std::int64_t)>& work) {
        std::int64_t next = 0;
        for (int lane = 0; lane < atOnce; ++lane)
            asio::co_spawn(
                context,
                [&]() -> asio::awaitable<void> {
                    while (next < count) {
                        const auto number = next++;
                        co_await work(number);
                    }
                },
                [](const std::exception_ptr& error) {
                    if (error)
                        std::rethrow_exception(error);
                });
        context.restart();
        context.run();
    }

    Testing::TemporaryFolder folder;
    asio::io_context context;
    JobContext job;
    std::shared_ptr<const KRCrypto::MasterKey> masterKey =
        std::make_shared<const KRCrypto::MasterKey>(KRCrypto::MasterKey::generate());
    std::string root;
};

struct Load {
    std::int64_t count = 0;
    std::int64_t size = 0;
    Testing::TemporaryFolder files;
    std::map<std::string, RemoteFile> uploaded; ///< by name

    [[nodiscard]] double mebibytes() const {
        return static_cast<double>(count) * static_cast<double>(size) / mebibyte;
    }

    [[nodiscard]] std::int64_t chunks() const {
        return count * KRCrypto::ChunkCrypto::chunkCount(size, KRCrypto::effectiveChunkSize());
    }

    void write() const {
        std::string block(static_cast<std::size_t>(std::min<std::int64_t>(size, 1 << 20)), '\0');
        for (std::int64_t number = 0; number < count; ++number) {
            std::ofstream file(files / std::to_string(number), std::ios::binary);
            std::mt19937_64 random(static_cast<std::uint64_t>(number));
            for (auto left = size; left > 0;) {
                for (std::size_t at = 0; at + 8 <= block.size(); at += 8) {
                    const auto bits = random();
                    std::memcpy(block.data() + at, &bits, 8);
                }
                const auto length = std::min<std::int64_t>(left, std::ssize(block));
                file.write(block.data(), length);
                left -= length;
            }
        }
    }
};

using Enqueue = std::function<asio::awaitable<void>(TransferQueue&)>;

struct Figures {
    double seconds = 0;
    double cpu = 0;
    double peak = 0; ///< MiB
};

/// Enqueues, and runs the queue until nothing waits.
Figures measure(Client& client, Load& load, const Enqueue& enqueue) {
    resetPeak();
    const auto cpu = cpuTime(RUSAGE_SELF);
    const auto seconds = secondsFor([&] {
        client.run([](Client& own, Load& files, const Enqueue& add) -> asio::awaitable<void> {
            TransferQueue queue(co_await asio::this_coro::executor, own.job.index,
                                std::make_shared<TransferRunner>(own.job), systemClock(),
                                TransferQueue::systemJitter());
            std::int64_t ended = 0;
            asio::steady_timer end(co_await asio::this_coro::executor, asio::steady_timer::time_point::max());
            co_await queue.addOutcomeHandler([&](TransferOutcome outcome) -> asio::awaitable<void> {
                if (const auto* failed = outcome.as<TransferOutcome::Failed>())
                    std::printf("failed: %s\n", failed->error.c_str());
                if (const auto* done = outcome.as<TransferOutcome::Uploaded>())
                    files.uploaded[done->job.name] = done->file;
                if (++ended == files.count)
                    end.cancel();
                co_return;
            });
            co_await add(queue);
            co_await queue.start();
            boost::system::error_code woken;
            co_await end.async_wait(asio::redirect_error(asio::use_awaitable, woken));
            co_await queue.stop();
            co_await queue.finished();
        }(client, load, enqueue));
    });
    return {seconds, cpuTime(RUSAGE_SELF) - cpu, peakMemory()};
}

void print(const char* what, const Load& load, const Figures& figures, double calls, double bytes,
           double crypto) {
    const auto bound = std::max({calls, bytes, crypto});
    std::printf("| %s | %.2f s | %.0f | %.0f | %.2f s | %.0f MiB | %.2f s | %.2f s | %.2f s | %.0f%% |\n",
                what, figures.seconds, load.mebibytes() / figures.seconds,
                static_cast<double>(load.count) / figures.seconds, figures.cpu, figures.peak, calls, bytes,
                crypto, 100 * bound / figures.seconds);
}

asio::awaitable<void> addUploads(TransferQueue& queue, const Client& client, const Load& load) {
    for (std::int64_t number = 0; number < load.count; ++number) {
        UploadJob job;
        job.name = std::to_string(number);
        job.sourcePath = load.files / job.name;
        job.folderId = client.root;
        job.mime = "application/octet-stream";
        job.clientFileId = "file-" + job.name;
        job.plainSize = load.size;
        auto id = "up-" + job.name;
        co_await queue.enqueueUpload(std::move(job), std::move(id));
    }
}

asio::awaitable<void> addDownloads(TransferQueue& queue, const Load& load, const fs::path& to) {
    for (const auto& [name, file] : load.uploaded) {
        DownloadJob job;
        job.fileId = file.id;
        job.destinationPath = to / name;
        co_await queue.enqueueDownload(std::move(job), name, load.size);
    }
}

/// Bytes of the sealed blob's parts, in order.
std::vector<std::int64_t> partSizes(const Load& load) {
    const auto full = KRCrypto::encChunkSize;
    std::vector<std::int64_t> sizes;
    for (auto left = KRCrypto::ChunkCrypto::encryptedSize(load.size); left > 0; left -= full)
        sizes.push_back(std::min(full, left));
    return sizes;
}

double uploadCalls(Client& client, const Load& load) {
    const auto sizes = partSizes(load);
    const KRCrypto::Bytes bytes(static_cast<std::size_t>(sizes.front()), 'x');
    const auto total = KRCrypto::ChunkCrypto::encryptedSize(load.size);
    return secondsFor([&] {
        client.each(load.count, [&](std::int64_t number) -> asio::awaitable<void> {
            const auto name = "bare-" + std::to_string(number);
            const auto created = co_await client.job.api->createUpload({name, total, std::ssize(sizes)});
            for (const auto& part : *created.parts)
                co_await client.job.transport->put(
                    part.url, KRCrypto::ByteView(bytes).first(static_cast<std::size_t>(
                                  sizes[static_cast<std::size_t>(part.partNumber - 1)])));
            static_cast<void>(co_await client.job.api->uploadStatus(*created.uploadId));
            CompleteUploadRequest request;
            request.folderId = client.root;
            request.id = name;
            request.metaEnc = client.masterKey->sealMeta(KRCrypto::FileMeta(name, "", load.size, ""));
            request.nameBlindIndex = name;
            request.wrappedFileKey = client.masterKey->wrapFileKey(KRCrypto::SecretBytes(KRCrypto::keySize));
            static_cast<void>(co_await client.job.api->completeUpload(*created.uploadId, std::move(request)));
        });
    });
}

double downloadCalls(Client& client, const Load& load) {
    const auto sizes = partSizes(load);
    return secondsFor([&] {
        client.each(load.count, [&](std::int64_t number) -> asio::awaitable<void> {
            const auto id = "file-" + std::to_string(number);
            static_cast<void>(co_await client.job.api->file(id));
            const auto info = co_await client.job.api->downloadInfo(id);
            KRCrypto::Bytes buffer;
            std::int64_t first = 0;
            for (const auto size : sizes) {
                buffer.resize(static_cast<std::size_t>(size));
                co_await client.job.transport->getInto(info.url, first, buffer);
                first += size;
            }
        });
    });
}

/// Hashing and sealing the same bytes on one thread; opening takes as long.
double cryptoBound(const Load& load) {
    const auto chunk = std::min(load.size, KRCrypto::effectiveChunkSize());
    const auto key = KRCrypto::ChunkCrypto::generateFileKey();
    const KRCrypto::Bytes plain(static_cast<std::size_t>(chunk), 'x');
    KRCrypto::Bytes sealed(plain.size() + KRCrypto::gcmTagSize);
    return secondsFor([&] {
        for (std::int64_t number = 0; number < load.chunks(); ++number) {
            static_cast<void>(KRCrypto::sha256(plain));
            static_cast<void>(
                KRCrypto::ChunkCrypto::encryptChunkInto(key.view(), number, load.chunks(), plain, sealed));
        }
    });
}

/// The parts of blobs of the same sizes, put and fetched without a queue, and their files' records.
std::pair<double, double> transportBounds(Client& client, const Load& load) {
    const auto chunkSize = KRCrypto::effectiveChunkSize();
    const auto sealed = KRCrypto::ChunkCrypto::encryptedSize(load.size, chunkSize);
    std::vector<std::pair<std::string, std::int64_t>> parts; // URLs and sizes
    std::vector<std::string> uploads;
    client.each(load.count, [&](std::int64_t number) -> asio::awaitable<void> {
        const auto created =
            co_await client.job.api->createUpload({"put-" + std::to_string(number), sealed,
                                                   KRCrypto::ChunkCrypto::chunkCount(load.size, chunkSize)});
        const auto full = chunkSize + static_cast<std::int64_t>(KRCrypto::gcmTagSize);
        for (const auto& part : *created.parts)
            parts.emplace_back(part.url, std::min(full, sealed - (part.partNumber - 1) * full));
        uploads.push_back(*created.uploadId);
    });
    const KRCrypto::Bytes bytes(static_cast<std::size_t>(parts.at(0).second), 'x');
    const auto put = secondsFor([&] {
        client.each(std::ssize(parts), [&](std::int64_t number) -> asio::awaitable<void> {
            const auto& [url, size] = parts[static_cast<std::size_t>(number)];
            co_await client.job.transport->put(
                url, KRCrypto::ByteView(bytes).first(static_cast<std::size_t>(size)));
        });
    });
    client.each(load.count, [&](std::int64_t number) -> asio::awaitable<void> {
        co_await client.job.api->abortUpload(uploads[static_cast<std::size_t>(number)]);
    });
    std::vector<std::string> urls;
    client.each(load.count, [&](std::int64_t number) -> asio::awaitable<void> {
        urls.push_back((co_await client.job.api->downloadInfo("file-" + std::to_string(number))).url);
    });
    const auto chunk = std::min(sealed, chunkSize + static_cast<std::int64_t>(KRCrypto::gcmTagSize));
    const auto get = secondsFor([&] {
        client.each(load.count, [&](std::int64_t number) -> asio::awaitable<void> {
            KRCrypto::Bytes buffer;
            for (std::int64_t first = 0; first < sealed; first += chunk) {
                buffer.resize(static_cast<std::size_t>(std::min(chunk, sealed - first)));
                co_await client.job.transport->getInto(urls[static_cast<std::size_t>(number)], first, buffer);
            }
        });
    });
    return {put, get};
}

int run(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: jobs-benchmark COUNT SIZE [LATENCY]\n");
        return 2;
    }
    Load load{std::atoll(argv[1]), std::atoll(argv[2]), {}, {}};
    const std::chrono::milliseconds latency(argc > 3 ? std::atoll(argv[3]) : 0);
    const Testing::TemporaryContainer container;
    const ServiceProcess service(latency);
    Client client(service.url());
    load.write();
    std::printf("%lld files of %lld bytes, %lld ms added to every answer\n\n",
                static_cast<long long>(load.count), static_cast<long long>(load.size),
                static_cast<long long>(latency.count()));
    const auto up =
        measure(client, load, [&](TransferQueue& queue) { return addUploads(queue, client, load); });
    const auto to = load.files / "fetched";
    const auto down =
        measure(client, load, [&](TransferQueue& queue) { return addDownloads(queue, load, to); });
    const auto uploads = uploadCalls(client, load);
    const auto downloads = downloadCalls(client, load);
    const auto [put, get] = transportBounds(client, load);
    const auto crypto = cryptoBound(load);
    std::printf("| | time | MiB/s | files/s | CPU time | peak memory | calls alone | bytes alone | hash "
                "and seal alone "
                "| longest alone / time |\n|---|---|---|---|---|---|---|---|---|---|\n");
    print("up", load, up, uploads, put, crypto);
    print("down", load, down, downloads, get, crypto);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "jobs-benchmark: %s\n", error.what());
        return 1;
    }
}
