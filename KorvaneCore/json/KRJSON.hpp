#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KRCrypto/SecretBytes.hpp"
#include "KorvaneCore/json/JSONError.hpp"

#include <boost/describe.hpp>
#include <boost/json/storage_ptr.hpp>
#include <boost/json/value.hpp>
#include <boost/mp11/algorithm.hpp>

#include <chrono>
#include <concepts>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The one codec between records and JSON. A record is a struct described with BOOST_DESCRIBE_STRUCT, its
/// members named like the JSON keys; a described enumeration is written by its enumerators' names. Optional
/// members are left out when empty, and may be absent or null when read; unknown keys are ignored; integers
/// are JSON integers; bytes, secret or not, are standard Base64. Reading throws JSONError. Stateless, so
/// callable from any thread.
///
/// A type with a form of its own has functions `boost::json::value encodeJSON(const T&)` and
/// `void decodeJSON(const boost::json::value&, T&)` beside it.
namespace Korvane::KRJSON {

using Value = boost::json::value;
using Date = std::chrono::system_clock::time_point;

/// Parses one JSON text; nesting is bounded at 32 levels. Throws JSONError.
[[nodiscard]] Value parse(std::string_view text);

/// Leaves no copy of the text behind but the one it gives.
[[nodiscard]] std::string serialise(const Value& value);

/// Overwrites the texts in a value that may hold secrets.
void wipe(Value& value) noexcept;

/// A parsed text in memory that is wiped before it is given back.
class Document {
public:
    /// As parse().
    explicit Document(std::string_view text);

    [[nodiscard]] const Value& value() const noexcept { return value_; }

private:
    boost::json::storage_ptr storage_;
    Value value_;
};

/// ISO-8601 in UTC, rounded to the millisecond: "2026-11-21T10:45:07.250Z".
[[nodiscard]] std::string formatDate(Date date);

/// Reads a date with or without a fraction of a second and with any offset from UTC; none when it does not
/// parse or lies outside the years 1678 to 2261.
[[nodiscard]] std::optional<Date> parseDate(std::string_view text);

namespace Detail {

template <class T>
concept HasOwnForm = requires(const T& source, T& target, const Value& json) {
    { encodeJSON(source) } -> std::same_as<Value>;
    decodeJSON(json, target);
};
template <class T>
concept DescribedRecord = boost::describe::has_describe_members<T>::value && !std::is_union_v<T>;
template <class T>
concept DescribedEnum = boost::describe::has_describe_enumerators<T>::value;

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;
template <class T>
inline constexpr bool isVector = false;
template <class T>
inline constexpr bool isVector<std::vector<T>> = true;
template <class T>
inline constexpr bool isStringMap = false;
template <class T>
inline constexpr bool isStringMap<std::map<std::string, T>> = true;

template <class T>
using Members = boost::describe::describe_members<T, boost::describe::mod_public>;

[[noreturn]] void wrongKind(std::string_view expected, const Value& got);
[[nodiscard]] std::int64_t signedInteger(const Value& json, std::int64_t lowest, std::int64_t highest);
[[nodiscard]] std::uint64_t unsignedInteger(const Value& json, std::uint64_t highest);
[[nodiscard]] const boost::json::array& array(const Value& json);
[[nodiscard]] const boost::json::object& object(const Value& json);
[[nodiscard]] std::string string(const Value& json);
[[nodiscard]] double number(const Value& json);
[[nodiscard]] bool boolean(const Value& json);
[[nodiscard]] Date date(const Value& json);

// Standard Base64, in a file of their own: a program without bytes in its JSON links no Base64.
[[nodiscard]] Value encodeBytes(KRCrypto::ByteView bytes);
void decodeBytes(const Value& json, KRCrypto::Bytes& bytes);
void decodeBytes(const Value& json, KRCrypto::SecretBytes& bytes);

/// The unqualified name of a record, for error messages.
[[nodiscard]] std::string recordName(const char* mangled);

} // namespace Detail

template <class T>
[[nodiscard]] Value encode(const T& source);

template <class T>
[[nodiscard]] T decode(const Value& json);

/// decode() for a value inside another one: errors leave out the record's own name. For decodeJSON functions.
template <class T>
[[nodiscard]] T decodeNested(const Value& json);

/// One member of an object, as a described record's field is written and read. For encodeJSON and decodeJSON
/// functions of records whose shape depends on their content.
template <class Field>
void writeMember(boost::json::object& object, const char* key, const Field& field);

template <class Field>
void readMember(const boost::json::object& object, const char* key, Field& field);

template <class T>
[[nodiscard]] std::string write(const T& source) {
    auto value = encode(source);
    auto text = serialise(value);
    wipe(value);
    return text;
}

template <class T>
[[nodiscard]] T read(std::string_view text);

} // namespace Korvane::KRJSON

#include "KorvaneCore/json/KRJSONRecords.hpp"
