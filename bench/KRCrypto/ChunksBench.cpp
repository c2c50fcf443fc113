#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/Sha256.hpp"
#include "bench/KRCrypto/BareLibrary.hpp"

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

// Full chunks on kept buffers, and a file of 2 GiB (KORVANE_BENCH_MIB another size) from the page cache.
namespace {

using namespace KRCrypto;

constexpr auto full = static_cast<std::size_t>(chunkSize);
const Bytes aad(24);

Bytes someChunk() {
    Bytes chunk(full);
    for (std::size_t at = 0; at < full; ++at) {
        chunk[at] = static_cast<std::uint8_t>(at * 2654435761U >> 13U);
    }
    return chunk;
}

void countBytes(benchmark::State& state, std::int64_t each) {
    state.SetBytesProcessed(state.iterations() * each);
}

void chunkBareSeal(benchmark::State& state) {
    const Bytes plain = someChunk();
    Bytes out(full + gcmTagSize);
    BareGcm cipher;
    for (auto _ : state) {
        cipher.seal(aad, plain, out.data());
    }
    countBytes(state, chunkSize);
}

void chunkEncryptInto(benchmark::State& state) {
    const Bytes plain = someChunk();
    Bytes out(full + gcmTagSize);
    for (auto _ : state) {
        ChunkCrypto::encryptChunkInto(benchKey, 0, 1, plain, out);
    }
    countBytes(state, chunkSize);
}

void chunkEncryptFresh(benchmark::State& state) {
    const Bytes plain = someChunk();
    for (auto _ : state) {
        benchmark::DoNotOptimize(ChunkCrypto::encryptChunk(benchKey, 0, 1, plain));
    }
    countBytes(state, chunkSize);
}

void chunkBareOpen(benchmark::State& state) {
    BareGcm cipher;
    Bytes sealed(full + gcmTagSize);
    cipher.seal(aad, someChunk(), sealed.data());
    Bytes out(full);
    for (auto _ : state) {
        cipher.open(aad, sealed, out.data());
    }
    countBytes(state, chunkSize);
}

void chunkDecryptInto(benchmark::State& state) {
    const Bytes sealed = ChunkCrypto::encryptChunk(benchKey, 0, 1, someChunk());
    Bytes out(full);
    for (auto _ : state) {
        ChunkCrypto::decryptChunkInto(benchKey, 0, 1, sealed, out);
    }
    countBytes(state, chunkSize);
}

std::int64_t fileMebibytes() {
    const char* asked = std::getenv("KORVANE_BENCH_MIB"); // NOLINT(concurrency-mt-unsafe): before any thread
    return asked == nullptr ? 2048 : std::stoll(asked);
}

// Hash and cipher one after the other over memory that is there already: no file, no copy.
void fileBareHashAndSeal(benchmark::State& state) {
    const Bytes plain = someChunk();
    Bytes out(full + gcmTagSize);
    const std::int64_t size = fileMebibytes() << 20U;
    for (auto _ : state) {
        Sha256 hasher;
        BareGcm cipher;
        for (std::int64_t done = 0; done < size; done += chunkSize) {
            const auto piece =
                ByteView(plain).first(static_cast<std::size_t>(std::min(chunkSize, size - done)));
            hasher.update(piece);
            cipher.seal(aad, piece, out.data());
        }
        benchmark::DoNotOptimize(hasher.digest());
    }
    countBytes(state, size);
}

class BenchFile {
public:
    explicit BenchFile(std::int64_t mebibytes) {
        std::string name = (std::filesystem::temp_directory_path() / "korvane-bench-XXXXXX").string();
        const int descriptor = mkstemp(name.data());
        if (descriptor < 0) {
            throw std::system_error(errno, std::system_category(), name);
        }
        close(descriptor);
        path_ = name;
        const Bytes chunk = someChunk();
        std::ofstream file(path_, std::ios::binary);
        for (std::int64_t at = 0; at < mebibytes; ++at) {
            file.write(asText(chunk).data() + at % 9 * 1048576, 1048576);
        }
    }

    ~BenchFile() { std::filesystem::remove(path_); }

    BenchFile(const BenchFile&) = delete;
    BenchFile& operator=(const BenchFile&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

void fileEncrypt(benchmark::State& state) {
    const BenchFile file(fileMebibytes());
    std::int64_t size = 0;
    for (auto _ : state) {
        size = ChunkCrypto::encryptFile(file.path(), benchKey, chunkSize, [](std::int64_t, ByteView chunk) {
                   benchmark::DoNotOptimize(chunk.data());
               }).plainSize;
    }
    countBytes(state, size);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peakMiB"] = static_cast<double>(usage.ru_maxrss) / 1024; // of the process so far
}

BENCHMARK(fileEncrypt)->Unit(benchmark::kMillisecond);
BENCHMARK(fileBareHashAndSeal)->Unit(benchmark::kMillisecond);
BENCHMARK(chunkBareSeal)->Unit(benchmark::kMicrosecond);
BENCHMARK(chunkEncryptInto)->Unit(benchmark::kMicrosecond);
BENCHMARK(chunkEncryptFresh)->Unit(benchmark::kMicrosecond);
BENCHMARK(chunkBareOpen)->Unit(benchmark::kMicrosecond);
BENCHMARK(chunkDecryptInto)->Unit(benchmark::kMicrosecond);

} // namespace
