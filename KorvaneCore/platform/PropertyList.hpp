#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Korvane {

/// Text that is no property list, or one holding a kind of value this system does not use.
class PropertyListError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A value of a property list, compared deeply. Dates have a resolution of a second in the XML form.
struct PropertyList {
    using Data = std::vector<std::byte>;
    using Date = std::chrono::system_clock::time_point;
    using Array = std::vector<PropertyList>;
    using Dictionary = std::map<std::string, PropertyList, std::less<>>;

    std::variant<bool, std::int64_t, double, std::string, Data, Date, Array, Dictionary> value;

    /// The value as a T, or null when it is of another kind. Valid as long as this object.
    template <class T>
    [[nodiscard]] const T* as() const noexcept {
        return std::get_if<T>(&value);
    }

    friend bool operator==(const PropertyList&, const PropertyList&) = default;
};

/// Reads the XML and the binary form. Throws PropertyListError.
[[nodiscard]] PropertyList parsePropertyList(std::string_view text);

/// The XML form. Strings must be UTF-8 without U+0000; otherwise throws PropertyListError.
[[nodiscard]] std::string formatPropertyList(const PropertyList& value);

} // namespace Korvane
