#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/ChunkDecryptor.hpp"
#include "fuzz/KRCrypto/Fuzzing.hpp"

#include <cstring>

using namespace KRCrypto;
using namespace KRCrypto::Fuzzing;

namespace {

std::int64_t taken(ByteView& input) {
    std::int64_t value = 0;
    std::memcpy(&value, input.data(), sizeof value);
    input = input.subspan(sizeof value);
    return value;
}

} // namespace

// Index, count and blob size from the input, the rest as the chunk: nothing forged opens, and what is
// encrypted at an allowed place comes back from there.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteView input(data, size);
    if (size < 24) {
        return 0;
    }
    const std::int64_t index = taken(input);
    const std::int64_t count = taken(input);
    const std::int64_t blob = taken(input);
    require(!accepts([&] { ChunkCrypto::decryptChunk(key, index, count, input); }));
    require(!accepts([&] { ChunkDecryptor(key, count).decrypt(index, input); }));
    accepts([&] {
        const ByteRange range = ChunkCrypto::encryptedRange(index, count, blob, count % chunkSize);
        require(range.start >= 0 && range.start <= range.end);
        require(range.end <= blob || range.start == range.end);
    });
    accepts([&] { require(ChunkCrypto::encryptedSize(blob) >= blob); });
    accepts([&] {
        const Bytes chunk = ChunkCrypto::encryptChunk(key, index, count, input);
        const Bytes plain = ChunkCrypto::decryptChunk(key, index, count, chunk);
        require(std::equal(plain.begin(), plain.end(), input.begin(), input.end()));
    });
    return 0;
}
