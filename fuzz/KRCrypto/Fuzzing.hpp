#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/KRCryptoError.hpp"

#include <array>
#include <cstdlib>

// What the targets share. Only KRCryptoError may come out of a decoder; any other exception ends the run, as
// a property that does not hold does.
namespace KRCrypto::Fuzzing {

inline constexpr std::array<std::uint8_t, 32> key{7};

inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// True when the call returned.
template <class Call>
bool accepts(Call call) {
    try {
        call();
        return true;
    } catch (const KRCryptoError&) {
        return false;
    }
}

} // namespace KRCrypto::Fuzzing
