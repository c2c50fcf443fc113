#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"

#include <boost/json.hpp>

#include <concepts>
#include <string>
#include <string_view>

namespace KRCrypto::Tests {

// A vector file, "published/…" or "golden/…". One that is missing, broken or empty is an exception.
boost::json::value vectors(std::string_view name);

// The rows of a file, or of one of its members; none is an exception.
boost::json::array rows(std::string_view name, std::string_view member = {});

inline std::string text(const boost::json::value& record, std::string_view key) {
    return std::string(record.at(key).as_string());
}

inline Bytes bytes(const boost::json::value& record, std::string_view key) {
    return Hex::decode(text(record, key));
}

inline std::int64_t number(const boost::json::value& record, std::string_view key) {
    return record.at(key).as_int64();
}

// The sentence of the KRCryptoError that a call throws, "" when it returns.
template <std::invocable Call>
std::string failureOf(Call call) {
    try {
        static_cast<void>(call());
        return "";
    } catch (const KRCryptoError& error) {
        return error.what();
    }
}

// A copy with one bit of one byte flipped.
inline Bytes flipped(ByteView bytes, std::size_t at) {
    Bytes copy(bytes.begin(), bytes.end());
    copy[at] ^= static_cast<std::uint8_t>(1U << (at % 8));
    return copy;
}

inline Bytes copyOf(ByteView bytes) {
    return {bytes.begin(), bytes.end()};
}

inline Bytes copyOf(std::string_view text) {
    return copyOf(asBytes(text));
}

inline constexpr std::string_view authenticationFailed = "Decryption failed (wrong key or tampered data)";

// Every single flipped byte of a sealed box must be found, the version by its own error.
template <class Open>
std::string firstUnnoticedFlip(ByteView sealed, Open open) {
    for (std::size_t at = 0; at < sealed.size(); ++at) {
        const Bytes tampered = flipped(sealed, at);
        const std::string expected =
            at == 0 ? "Unsupported sealed-box version 0" : std::string(authenticationFailed);
        const std::string actual = failureOf([&] { return open(ByteView(tampered)); });
        if (actual != expected) {
            return "byte " + std::to_string(at) + ": " + actual;
        }
    }
    return "";
}

} // namespace KRCrypto::Tests
