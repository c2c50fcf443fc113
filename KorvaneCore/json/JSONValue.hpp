#pragma once

#include <boost/json/value.hpp>

#include <map>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace Korvane {

/// Free-form JSON as a plain value. Numbers are doubles: integers beyond 2^53 lose their last digits.
class JSONValue {
public:
    using Array = std::vector<JSONValue>;
    using Object = std::map<std::string, JSONValue>;
    using Null = std::monostate;

    JSONValue() = default; ///< null

    // One constructor a case. NOLINTBEGIN(google-explicit-constructor)
    JSONValue(bool value) : value_(value) {}

    JSONValue(double value) : value_(value) {}

    JSONValue(int value) : value_(static_cast<double>(value)) {}

    JSONValue(const char* value) : value_(std::string(value)) {}

    JSONValue(std::string value) : value_(std::move(value)) {}

    JSONValue(Array value) : value_(std::move(value)) {}

    JSONValue(Object value) : value_(std::move(value)) {}

    // NOLINTEND(google-explicit-constructor)

    /// The payload when the value is of that case, else nullptr.
    template <class Case>
    [[nodiscard]] const Case* as() const noexcept {
        return std::get_if<Case>(&value_);
    }

    [[nodiscard]] bool isNull() const noexcept { return as<Null>() != nullptr; }

    friend bool operator==(const JSONValue& a, const JSONValue& b);

    friend boost::json::value encodeJSON(const JSONValue& value);

private:
    std::variant<Null, bool, double, std::string, Array, Object> value_;
};

/// A whole number up to 2^53 is written as a JSON integer.
[[nodiscard]] boost::json::value encodeJSON(const JSONValue& value);
void decodeJSON(const boost::json::value& json, JSONValue& value);

} // namespace Korvane
