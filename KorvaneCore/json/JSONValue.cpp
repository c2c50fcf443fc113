#include "KorvaneCore/json/JSONValue.hpp"

#include "KorvaneCore/json/KRJSON.hpp"

#include <cmath>

namespace Korvane {

namespace {

struct Encode {
    boost::json::value operator()(JSONValue::Null) const { return nullptr; }

    boost::json::value operator()(double number) const {
        constexpr double exactIntegers = 9007199254740992.0; // 2^53
        if (std::trunc(number) == number && std::abs(number) <= exactIntegers)
            return static_cast<std::int64_t>(number);
        return number;
    }

    template <class T>
    boost::json::value operator()(const T& value) const {
        return KRJSON::encode(value);
    }
};

} // namespace

bool operator==(const JSONValue& a, const JSONValue& b) {
    return a.value_ == b.value_;
}

boost::json::value encodeJSON(const JSONValue& value) {
    return std::visit(Encode{}, value.value_);
}

void decodeJSON(const boost::json::value& json, JSONValue& value) {
    switch (json.kind()) {
    case boost::json::kind::null:
        value = {};
        break;
    case boost::json::kind::bool_:
        value = json.get_bool();
        break;
    case boost::json::kind::string:
        value = KRJSON::decodeNested<std::string>(json);
        break;
    case boost::json::kind::array:
        value = KRJSON::decodeNested<JSONValue::Array>(json);
        break;
    case boost::json::kind::object:
        value = KRJSON::decodeNested<JSONValue::Object>(json);
        break;
    default:
        value = KRJSON::decodeNested<double>(json);
    }
}

} // namespace Korvane
