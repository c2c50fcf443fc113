#pragma once

// The templates of KRJSON.hpp; included by it only.

#include "KorvaneCore/json/KRJSON.hpp"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <typeinfo>
#include <utility>

namespace Korvane::KRJSON {

namespace Detail {

template <class T>
concept Binary = std::same_as<T, KRCrypto::Bytes> || std::same_as<T, KRCrypto::SecretBytes>;

template <DescribedRecord T>
Value encodeRecord(const T& record) {
    boost::json::object object;
    boost::mp11::mp_for_each<Members<T>>(
        [&](auto member) { writeMember(object, member.name, record.*member.pointer); });
    return object;
}

template <DescribedRecord T>
T decodeRecord(const Value& json) {
    T record{};
    const auto& members = object(json);
    boost::mp11::mp_for_each<Members<T>>(
        [&](auto member) { readMember(members, member.name, record.*member.pointer); });
    return record;
}

template <class T>
std::vector<T> decodeVector(const Value& json) {
    const auto& items = array(json);
    std::vector<T> result;
    result.reserve(items.size());
    for (const auto& item : items) {
        try {
            result.push_back(decodeNested<T>(item));
        } catch (const JSONError& error) {
            throw error.within("[" + std::to_string(result.size()) + "]");
        }
    }
    return result;
}

template <class T>
std::map<std::string, T> decodeMap(const Value& json) {
    std::map<std::string, T> result;
    for (const auto& [key, item] : object(json)) {
        try {
            result.insert_or_assign(std::string(key), decodeNested<T>(item));
        } catch (const JSONError& error) {
            throw error.within("." + std::string(key));
        }
    }
    return result;
}

template <DescribedEnum T>
T decodeEnum(const Value& json) {
    const auto name = string(json);
    T result{};
    if (!boost::describe::enum_from_string(name.c_str(), result))
        throw JSONError("unknown " + recordName(typeid(T).name()) + " \"" + name + "\"");
    return result;
}

} // namespace Detail

template <class Field>
void writeMember(boost::json::object& object, const char* key, const Field& field) {
    if constexpr (Detail::isOptional<Field>) {
        if (field)
            object.emplace(key, encode(*field));
    } else {
        object.emplace(key, encode(field));
    }
}

template <class Field>
void readMember(const boost::json::object& object, const char* key, Field& field) {
    const Value* json = object.if_contains(key);
    try {
        if constexpr (Detail::isOptional<Field>) {
            if (json == nullptr || json->is_null())
                field.reset();
            else
                field = decodeNested<typename Field::value_type>(*json);
        } else {
            if (json == nullptr)
                throw JSONError("is missing");
            field = decodeNested<Field>(*json);
        }
    } catch (const JSONError& error) {
        throw error.within(std::string(".") + key);
    }
}

template <class T>
Value encode(const T& source) {
    if constexpr (Detail::HasOwnForm<T>) {
        return encodeJSON(source);
    } else if constexpr (std::same_as<T, Date>) {
        return formatDate(source).c_str();
    } else if constexpr (Detail::Binary<T>) {
        return Detail::encodeBytes(source);
    } else if constexpr (Detail::DescribedEnum<T>) {
        return boost::describe::enum_to_string(source, "");
    } else if constexpr (Detail::DescribedRecord<T>) {
        return Detail::encodeRecord(source);
    } else if constexpr (Detail::isVector<T>) {
        boost::json::array items;
        items.reserve(source.size());
        for (const auto& item : source)
            items.push_back(encode(item));
        return items;
    } else if constexpr (Detail::isStringMap<T>) {
        boost::json::object members;
        for (const auto& [key, item] : source)
            members.emplace(key, encode(item));
        return members;
    } else if constexpr (std::same_as<T, std::string>) {
        return boost::json::string_view(source);
    } else {
        static_assert(std::is_arithmetic_v<T>, "this type has no JSON form");
        return Value(source);
    }
}

template <class T>
T decodeNested(const Value& json) {
    if constexpr (Detail::HasOwnForm<T>) {
        T result{};
        decodeJSON(json, result);
        return result;
    } else if constexpr (std::same_as<T, Date>) {
        return Detail::date(json);
    } else if constexpr (Detail::Binary<T>) {
        T bytes;
        Detail::decodeBytes(json, bytes);
        return bytes;
    } else if constexpr (Detail::DescribedEnum<T>) {
        return Detail::decodeEnum<T>(json);
    } else if constexpr (Detail::DescribedRecord<T>) {
        return Detail::decodeRecord<T>(json);
    } else if constexpr (Detail::isVector<T>) {
        return Detail::decodeVector<typename T::value_type>(json);
    } else if constexpr (Detail::isStringMap<T>) {
        return Detail::decodeMap<typename T::mapped_type>(json);
    } else if constexpr (std::same_as<T, std::string>) {
        return Detail::string(json);
    } else if constexpr (std::same_as<T, bool>) {
        return Detail::boolean(json);
    } else if constexpr (std::floating_point<T>) {
        return static_cast<T>(Detail::number(json));
    } else if constexpr (std::unsigned_integral<T>) {
        return static_cast<T>(Detail::unsignedInteger(json, std::numeric_limits<T>::max()));
    } else {
        static_assert(std::signed_integral<T>, "this type has no JSON form");
        return static_cast<T>(
            Detail::signedInteger(json, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
    }
}

template <class T>
T decode(const Value& json) {
    try {
        return decodeNested<T>(json);
    } catch (const JSONError& error) {
        throw error.of(Detail::recordName(typeid(T).name()));
    }
}

template <class T>
T read(std::string_view text) {
    try {
        const Document document(text);
        return decodeNested<T>(document.value());
    } catch (const JSONError& error) {
        throw error.of(Detail::recordName(typeid(T).name()));
    }
}

} // namespace Korvane::KRJSON
