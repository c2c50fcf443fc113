#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/Sizes.hpp"

namespace KRCrypto::Internal {

// A source fills all of `out` or returns false.
using RandomSource = bool (*)(MutableBytes out);

bool systemRandom(MutableBytes out);    // getrandom(2)
bool generatedRandom(MutableBytes out); // the generator OpenSSL takes private keys from

// From the first source that delivers; stops the process when neither does.
void fillRandom(MutableBytes out, RandomSource system, RandomSource generator);

// A nonce for one box: 12 bytes from a small stock of system random bytes that each thread keeps for some
// milliseconds, since a system call costs more than sealing a short text. The stock lies in memory that the
// kernel empties in a forked child, so parent and child never hand out the same nonce. At a thread's end,
// after its stock is gone, nonces come straight from the system.
void fillNonce(std::span<std::uint8_t, gcmIVSize> out);

} // namespace KRCrypto::Internal
