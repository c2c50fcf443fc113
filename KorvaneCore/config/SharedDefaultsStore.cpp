#include "KorvaneCore/config/SharedDefaultsStore.hpp"

namespace Korvane {

namespace {

template <class T>
std::optional<T> valueAs(const std::optional<PropertyList>& value) {
    if (!value)
        return std::nullopt;
    const T* typed = value->as<T>();
    if (typed == nullptr)
        return std::nullopt;
    return *typed;
}

} // namespace

std::optional<std::string> SharedDefaultsStore::string(std::string_view key) const {
    return valueAs<std::string>(object(key));
}

std::optional<PropertyList> SharedDefaultsStore::object(std::string_view key) const {
    return defaults->object(keyPrefix + std::string(key));
}

std::optional<std::vector<std::string>> SharedDefaultsStore::stringArray(std::string_view key) const {
    const auto array = valueAs<PropertyList::Array>(object(key));
    if (!array)
        return std::nullopt;
    std::vector<std::string> strings;
    strings.reserve(array->size());
    for (const auto& item : *array) {
        const auto* text = item.as<std::string>();
        if (text == nullptr)
            return std::nullopt;
        strings.push_back(*text);
    }
    return strings;
}

std::optional<PropertyList::Data> SharedDefaultsStore::data(std::string_view key) const {
    return valueAs<PropertyList::Data>(object(key));
}

bool SharedDefaultsStore::boolean(std::string_view key) const {
    const auto value = object(key);
    if (!value)
        return false;
    if (const auto* flag = value->as<bool>())
        return *flag;
    if (const auto* number = value->as<std::int64_t>())
        return *number != 0;
    if (const auto* number = value->as<double>())
        return *number != 0;
    const auto* text = value->as<std::string>();
    return text != nullptr && (*text == "YES" || *text == "true" || *text == "1");
}

void SharedDefaultsStore::set(const std::optional<PropertyList>& value, std::string_view key) const {
    defaults->set(keyPrefix + std::string(key), value);
}

void SharedDefaultsStore::removeObject(std::string_view key) const {
    set(std::nullopt, key);
}

} // namespace Korvane
