#pragma once

#include "KorvaneCore/platform/PropertyList.hpp"
#include "KorvaneCore/platform/UserDefaults.hpp"

#include <concepts>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Korvane {

/// The settings of one build channel: every key is read and written as `keyPrefix` + key. Operations throw
/// what UserDefaults throws. Callable from any thread.
struct SharedDefaultsStore {
    std::shared_ptr<UserDefaults> defaults;
    std::string keyPrefix;

    /// None also when the value is of another kind; likewise below.
    [[nodiscard]] std::optional<std::string> string(std::string_view key) const;
    [[nodiscard]] std::optional<PropertyList> object(std::string_view key) const;
    [[nodiscard]] std::optional<std::vector<std::string>> stringArray(std::string_view key) const;
    [[nodiscard]] std::optional<PropertyList::Data> data(std::string_view key) const;

    /// True for true, a number other than 0, and the strings "YES", "true" and "1"; else false.
    [[nodiscard]] bool boolean(std::string_view key) const;

    /// A missing value removes the key.
    void set(const std::optional<PropertyList>& value, std::string_view key) const;

    /// For bool alone: a string literal would turn into one.
    template <std::same_as<bool> Bool>
    void set(Bool value, std::string_view key) const {
        set(PropertyList{value}, key);
    }

    void removeObject(std::string_view key) const;
};

} // namespace Korvane
