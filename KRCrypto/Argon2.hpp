#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"

#include <boost/describe/class.hpp>

#include <cstdint>
#include <string_view>

namespace KRCrypto {

// Costs of one Argon2id run; also the JSON record in which the server and links give them.
struct Argon2Params {
    std::int64_t memoryKib = 65536;
    std::int64_t iterations = 3;
    std::int64_t parallelism = 1; // lanes and threads
    std::int64_t outputLength = 32;

    bool operator==(const Argon2Params&) const = default;
};

BOOST_DESCRIBE_STRUCT(Argon2Params, (), (memoryKib, iterations, parallelism, outputLength))

// Argon2id (RFC 9106), version 0x13. Takes memoryKib KiB and a noticeable time: not for event threads. Throws
// Argon2 with the library's code and text. A length or cost that does not fit in 32 bits is a mistake of the
// program and stops the process, so parameters from outside are checked first, by one of the two functions
// below.
SecretBytes argon2id(std::string_view password, ByteView salt, const Argon2Params& params);
SecretBytes argon2idRaw(ByteView password, ByteView salt, ByteView secret, ByteView associatedData,
                        const Argon2Params& params);

// Parameters of an account, from the server: no weaker than the defaults and no costlier than 4 GiB, 64
// iterations and 64 lanes. Throws ServerKDFError. Called before anything is derived from a password.
void requireSafeServerParams(const Argon2Params& params);

// argon2id for salt and parameters of a link or a drop, which their maker chose: the same ceilings hold,
// before any memory is taken, but no floors beyond the library's. Throws Argon2 with the library's code and
// text for the first value out of range, in the library's order: output, salt, memory, iterations, lanes.
SecretBytes argon2idUntrusted(std::string_view password, ByteView salt, const Argon2Params& params);

} // namespace KRCrypto
