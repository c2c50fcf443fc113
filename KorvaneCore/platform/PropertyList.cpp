#include "KorvaneCore/platform/PropertyList.hpp"

#include <plist/plist.h>

#include <cmath>
#include <limits>
#include <memory>

namespace Korvane {

namespace {

// libplist counts dates from 2001-01-01T00:00:00Z.
constexpr std::int64_t secondsFrom1970To2001 = 978'307'200;
constexpr int maxDepth = 32;

struct PlistDeleter {
    void operator()(void* node) const { plist_free(node); }
};

using OwnedPlist = std::unique_ptr<void, PlistDeleter>;

struct XMLDeleter {
    void operator()(char* text) const { plist_to_xml_free(text); }
};

PropertyList convert(plist_t node, int depth);

PropertyList convertArray(plist_t node, int depth) {
    PropertyList::Array array;
    const std::uint32_t size = plist_array_get_size(node);
    array.reserve(size);
    for (std::uint32_t i = 0; i < size; ++i)
        array.push_back(convert(plist_array_get_item(node, i), depth + 1));
    return {std::move(array)};
}

PropertyList convertDictionary(plist_t node, int depth) {
    PropertyList::Dictionary dictionary;
    plist_dict_iter rawIterator = nullptr;
    plist_dict_new_iter(node, &rawIterator);
    const std::unique_ptr<void, decltype(&std::free)> iterator(rawIterator, &std::free);
    while (true) {
        char* rawKey = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, rawIterator, &rawKey, &item);
        if (item == nullptr)
            break;
        const std::unique_ptr<char, decltype(&std::free)> key(rawKey, &std::free);
        dictionary.emplace(key.get(), convert(item, depth + 1));
    }
    return {std::move(dictionary)};
}

PropertyList convertDate(plist_t node) {
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    return {PropertyList::Date(std::chrono::seconds(seconds + secondsFrom1970To2001) +
                               std::chrono::microseconds(microseconds))};
}

PropertyList convert(plist_t node, int depth) {
    if (depth > maxDepth)
        throw PropertyListError("property list is nested too deeply");
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t flag = 0;
        plist_get_bool_val(node, &flag);
        return {flag != 0};
    }
    case PLIST_UINT: {
        // The same 64 bits serve negative numbers; the library has no getter for those.
        std::uint64_t number = 0;
        plist_get_uint_val(node, &number);
        return {static_cast<std::int64_t>(number)};
    }
    case PLIST_REAL: {
        double number = 0;
        plist_get_real_val(node, &number);
        return {number};
    }
    case PLIST_STRING: {
        std::uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return {std::string(text, length)};
    }
    case PLIST_DATA: {
        std::uint64_t length = 0;
        const auto* bytes = reinterpret_cast<const std::byte*>(plist_get_data_ptr(node, &length));
        return {PropertyList::Data(bytes, bytes + length)};
    }
    case PLIST_DATE:
        return convertDate(node);
    case PLIST_ARRAY:
        return convertArray(node, depth);
    case PLIST_DICT:
        return convertDictionary(node, depth);
    default:
        throw PropertyListError("property list holds a value of an unknown kind");
    }
}

struct Builder {
    plist_t operator()(bool flag) const { return plist_new_bool(flag ? 1 : 0); }

    // Written as a signed number: the library formats eight-byte integers so.
    plist_t operator()(std::int64_t number) const {
        return plist_new_uint(static_cast<std::uint64_t>(number));
    }

    plist_t operator()(double number) const { return plist_new_real(number); }

    plist_t operator()(const std::string& text) const {
        if (text.find('\0') != std::string::npos)
            throw PropertyListError("text holds U+0000");
        return plist_new_string(text.c_str());
    }

    plist_t operator()(const PropertyList::Data& bytes) const {
        return plist_new_data(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }

    plist_t operator()(PropertyList::Date date) const {
        using std::chrono::floor;
        const auto whole = floor<std::chrono::seconds>(date.time_since_epoch());
        const auto seconds = whole.count() - secondsFrom1970To2001;
        if (seconds < std::numeric_limits<std::int32_t>::min() ||
            seconds > std::numeric_limits<std::int32_t>::max())
            throw PropertyListError("date is out of range");
        return plist_new_date(static_cast<std::int32_t>(seconds), 0);
    }

    plist_t operator()(const PropertyList::Array& array) const {
        OwnedPlist node(plist_new_array());
        for (const auto& item : array)
            plist_array_append_item(node.get(), std::visit(*this, item.value));
        return node.release();
    }

    plist_t operator()(const PropertyList::Dictionary& dictionary) const {
        OwnedPlist node(plist_new_dict());
        for (const auto& [key, item] : dictionary)
            plist_dict_set_item(node.get(), key.c_str(), std::visit(*this, item.value));
        return node.release();
    }
};

/// The library reads what it can of an XML text cut short; a setting lost that way would be lost for good.
bool isWhole(std::string_view text) {
    if (text.starts_with("bplist"))
        return true;
    const auto end = text.find_last_not_of(" \t\r\n");
    return end != std::string_view::npos && text.substr(0, end + 1).ends_with("</plist>");
}

} // namespace

PropertyList parsePropertyList(std::string_view text) {
    if (text.size() > std::numeric_limits<std::uint32_t>::max())
        throw PropertyListError("property list is too large");
    if (!isWhole(text))
        throw PropertyListError("not a property list");
    plist_t root = nullptr;
    plist_from_memory(text.data(), static_cast<std::uint32_t>(text.size()), &root);
    if (root == nullptr)
        throw PropertyListError("not a property list");
    const OwnedPlist owned(root);
    return convert(root, 0);
}

std::string formatPropertyList(const PropertyList& value) {
    const OwnedPlist root(std::visit(Builder{}, value.value));
    char* text = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(root.get(), &text, &length);
    if (text == nullptr)
        throw PropertyListError("property list cannot be written");
    const std::unique_ptr<char, XMLDeleter> owned(text);
    return {text, length};
}

} // namespace Korvane
