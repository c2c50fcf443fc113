#pragma once

#include "KRCrypto/Argon2.hpp"
#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/Hex.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/MasterKey.hpp"

#include <boost/json.hpp>

#include <concepts>
#include <string>
#include <string_view>

namespace KRCrypto::Tests {

using Value = boost::json::value;

// A vector file, "published/…", "golden/…" or "cases/…". One that is missing, broken or empty is an
// exception.
Value vectors(std::string_view name);

// The rows of a file, or of one of its members; none is an exception.
boost::json::array rows(std::string_view name, std::string_view member = {});

// A text; an array of texts and [text, times] stands for all of them in a row, {"hex": …} for bytes.
std::string text(const Value& record, std::string_view key);

Argon2Params paramsOf(const Value& record);

MasterKey goldenKey();

inline Bytes bytes(const Value& record, std::string_view key) {
    return Hex::decode(text(record, key));
}

inline SecretBytes secret(const Value& record, std::string_view key) {
    return SecretBytes::copyOf(bytes(record, key));
}

inline std::int64_t number(const Value& record, std::string_view key) {
    return record.at(key).as_int64();
}

inline bool flag(const Value& record, std::string_view key) {
    return record.at(key).as_bool();
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
inline constexpr std::string_view invalidMeta = "Invalid metadata";
inline constexpr std::string_view invalidEncoding = "Invalid encoding";
inline constexpr std::string_view invalidPublicKey = "Invalid public key";
inline constexpr std::string_view sizeMismatch = "Size mismatch";

} // namespace KRCrypto::Tests
