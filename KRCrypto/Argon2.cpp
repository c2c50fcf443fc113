#include "KRCrypto/Argon2.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/ServerKDFError.hpp"

#include <argon2.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace KRCrypto {

namespace {

constexpr Argon2Params floorParams;
constexpr Argon2Params ceilingParams{
    .memoryKib = 4194304, .iterations = 64, .parallelism = 64, .outputLength = 32};

template <class Integer>
std::uint32_t fits32(Integer value) {
    if (!std::in_range<std::uint32_t>(value)) {
        std::fputs("An Argon2 length or cost does not fit in 32 bits\n", stderr);
        std::abort();
    }
    return static_cast<std::uint32_t>(value);
}

[[noreturn]] void fail(int code) {
    const char* text = argon2_error_message(code);
    throw KRCryptoError(KRCryptoError::Argon2{code, text == nullptr ? "unknown" : text});
}

// The library reads these inputs but takes them as mutable. Empty ones still need an address, for it to
// report the length rather than the pointer.
std::uint8_t* input(ByteView bytes) {
    static std::uint8_t nothing = 0;
    return bytes.empty() ? &nothing : const_cast<std::uint8_t*>(bytes.data());
}

struct Limit {
    std::int64_t value;
    std::int64_t floor;
    std::int64_t ceiling;
    int tooSmall;
    int tooLarge;
};

// In the order in which the library looks at them.
std::array<Limit, 5> limitsOf(ByteView salt, const Argon2Params& params) {
    constexpr std::int64_t blocksPerLane = 8;
    const std::int64_t lanes = std::clamp<std::int64_t>(params.parallelism, 0, ARGON2_MAX_LANES);
    const std::int64_t leastMemory = std::max<std::int64_t>(ARGON2_MIN_MEMORY, blocksPerLane * lanes);
    const Argon2Params& most = ceilingParams;
    return {{
        {params.outputLength, ARGON2_MIN_OUTLEN, most.outputLength, ARGON2_OUTPUT_TOO_SHORT,
         ARGON2_OUTPUT_TOO_LONG},
        {std::ssize(salt), ARGON2_MIN_SALT_LENGTH, ARGON2_MAX_SALT_LENGTH, ARGON2_SALT_TOO_SHORT,
         ARGON2_SALT_TOO_LONG},
        {params.memoryKib, leastMemory, most.memoryKib, ARGON2_MEMORY_TOO_LITTLE, ARGON2_MEMORY_TOO_MUCH},
        {params.iterations, ARGON2_MIN_TIME, most.iterations, ARGON2_TIME_TOO_SMALL, ARGON2_TIME_TOO_LARGE},
        {params.parallelism, ARGON2_MIN_LANES, most.parallelism, ARGON2_LANES_TOO_FEW, ARGON2_LANES_TOO_MANY},
    }};
}

} // namespace

SecretBytes argon2idRaw(ByteView password, ByteView salt, ByteView secret, ByteView associatedData,
                        const Argon2Params& params) {
    const std::uint32_t outputLength = fits32(params.outputLength);
    SecretBytes output(std::max<std::uint32_t>(outputLength, 1));
    argon2_context context{
        .out = output.bytes().data(),
        .outlen = outputLength,
        .pwd = input(password),
        .pwdlen = fits32(password.size()),
        .salt = input(salt),
        .saltlen = fits32(salt.size()),
        .secret = input(secret),
        .secretlen = fits32(secret.size()),
        .ad = input(associatedData),
        .adlen = fits32(associatedData.size()),
        .t_cost = fits32(params.iterations),
        .m_cost = fits32(params.memoryKib),
        .lanes = fits32(params.parallelism),
        .threads = fits32(params.parallelism),
        .version = ARGON2_VERSION_13,
        .allocate_cbk = nullptr,
        .free_cbk = nullptr,
        .flags = 0,
    };
    const int code = argon2_ctx(&context, Argon2_id);
    if (code != ARGON2_OK) {
        fail(code);
    }
    return output;
}

SecretBytes argon2id(std::string_view password, ByteView salt, const Argon2Params& params) {
    return argon2idRaw(asBytes(password), salt, {}, {}, params);
}

void requireSafeServerParams(const Argon2Params& params) {
    const auto within = [](std::int64_t value, std::int64_t least, std::int64_t most) {
        return value >= least && value <= most;
    };
    if (!within(params.memoryKib, floorParams.memoryKib, ceilingParams.memoryKib) ||
        !within(params.iterations, floorParams.iterations, ceilingParams.iterations) ||
        !within(params.parallelism, floorParams.parallelism, ceilingParams.parallelism) ||
        params.outputLength != floorParams.outputLength) {
        throw ServerKDFError();
    }
}

SecretBytes argon2idUntrusted(std::string_view password, ByteView salt, const Argon2Params& params) {
    for (const Limit& limit : limitsOf(salt, params)) {
        if (limit.value < limit.floor || limit.value > limit.ceiling) {
            fail(limit.value < limit.floor ? limit.tooSmall : limit.tooLarge);
        }
    }
    return argon2id(password, salt, params);
}

} // namespace KRCrypto
