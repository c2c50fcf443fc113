#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/MasterKey.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "bench/KRCrypto/BareLibrary.hpp"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

// 200 bytes, about an entry's metadata.
namespace {

using namespace KRCrypto;

const Bytes plain(200, 0x42);
const ByteView label = asBytes(CryptoContext::meta);

void smallBareKeyKept(benchmark::State& state) {
    BareGcm cipher;
    Bytes out(plain.size() + sealedOverhead);
    for (auto _ : state) {
        cipher.seal(label, plain, out.data());
        benchmark::DoNotOptimize(out.data());
    }
}

void smallBareKeyEachTime(benchmark::State& state) {
    BareGcm cipher;
    Bytes out(plain.size() + sealedOverhead);
    for (auto _ : state) {
        cipher.seal(label, plain, out.data(), benchKey.data());
        benchmark::DoNotOptimize(out.data());
    }
}

void smallSealingKey(benchmark::State& state) {
    SealingKey key(benchKey);
    for (auto _ : state) {
        benchmark::DoNotOptimize(key.seal(plain, CryptoContext::meta));
    }
}

void smallSealingKeyInto(benchmark::State& state) {
    SealingKey key(benchKey);
    Bytes out(plain.size() + sealedOverhead);
    for (auto _ : state) {
        benchmark::DoNotOptimize(key.sealInto(plain, CryptoContext::meta, out));
    }
}

void smallSeal(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(seal(benchKey, plain, CryptoContext::meta));
    }
}

void smallOpen(benchmark::State& state) {
    const Bytes box = seal(benchKey, plain, CryptoContext::meta);
    for (auto _ : state) {
        benchmark::DoNotOptimize(open(benchKey, box, CryptoContext::meta));
    }
}

// What a folder of 100,000 entries costs on its way up.
void metadataOfManyNames(benchmark::State& state) {
    const MasterKey mk = MasterKey::fromBytes(benchKey);
    std::vector<std::string> names;
    names.reserve(100000);
    for (int i = 0; i < 100000; ++i) {
        names.push_back((i % 2 == 0 ? "Urlaub é " : "IMG_") + std::to_string(i) + ".JPG");
    }
    const std::string hash(64, 'a');
    for (auto _ : state) {
        for (const std::string& name : names) {
            benchmark::DoNotOptimize(
                mk.sealMeta(FileMeta(name, "image/jpeg", 12345, hash, "2024-01-02T03:04:05Z")));
            benchmark::DoNotOptimize(mk.nameBlindIndex(name));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(names.size()));
}

BENCHMARK(smallBareKeyKept);
BENCHMARK(smallBareKeyEachTime);
BENCHMARK(smallSealingKey);
BENCHMARK(smallSealingKeyInto);
BENCHMARK(smallSeal);
BENCHMARK(smallOpen);
BENCHMARK(metadataOfManyNames)->Unit(benchmark::kMillisecond);

} // namespace
