#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"

namespace KRCrypto {

// Cryptographic random bytes from the operating system or, should it refuse, from the library's key
// generator. Never fails: without any source of randomness the process is stopped.
void fillRandom(MutableBytes out);
Bytes randomBytes(std::size_t count);

// The same, for keys and other secrets.
SecretBytes randomSecret(std::size_t count);

} // namespace KRCrypto
