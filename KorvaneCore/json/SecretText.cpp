#include "KorvaneCore/json/SecretText.hpp"

#include "KorvaneCore/json/KRJSON.hpp"

namespace Korvane {

boost::json::value encodeJSON(const SecretText& text) {
    return boost::json::string_view(text.text());
}

void decodeJSON(const boost::json::value& json, SecretText& text) {
    const auto* string = json.if_string();
    if (string == nullptr)
        KRJSON::Detail::wrongKind("string", json);
    text = SecretText(std::string_view(string->data(), string->size()));
}

} // namespace Korvane
