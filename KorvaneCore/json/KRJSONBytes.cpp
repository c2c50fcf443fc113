#include "KRCrypto/B64.hpp"
#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

namespace Korvane::KRJSON::Detail {

Value encodeBytes(KRCrypto::ByteView bytes) {
    auto text = KRCrypto::B64::encode(bytes);
    Value json = boost::json::string_view(text);
    KRCrypto::wipe(text);
    return json;
}

void decodeBytes(const Value& json, KRCrypto::Bytes& bytes) {
    const auto* text = json.if_string();
    if (text == nullptr)
        wrongKind("string", json);
    try {
        bytes = KRCrypto::B64::decode({text->data(), text->size()});
    } catch (const KRCrypto::KRCryptoError&) {
        throw JSONError("expected Base64");
    }
}

void decodeBytes(const Value& json, KRCrypto::SecretBytes& bytes) {
    KRCrypto::Bytes plain;
    decodeBytes(json, plain);
    bytes = KRCrypto::SecretBytes::copyOf(plain);
    KRCrypto::wipe(plain);
}

} // namespace Korvane::KRJSON::Detail
