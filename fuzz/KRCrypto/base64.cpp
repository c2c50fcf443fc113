#include "KRCrypto/B64.hpp"
#include "KRCrypto/Hex.hpp"
#include "fuzz/KRCrypto/Fuzzing.hpp"

using namespace KRCrypto;
using namespace KRCrypto::Fuzzing;

// What decodes says the same after encoding; the three decoders agree.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = asText({data, size});
    accepts([&] {
        const Bytes decoded = B64::decode(text);
        require(B64::decode(B64::encode(decoded)) == decoded && B64::decodeURL(text) == decoded);
    });
    Bytes url;
    const bool plain = accepts([&] { url = B64::decodeURL(text); });
    const bool secret = accepts([&] { require(B64::decodeSecretURL(text) == SecretBytes::copyOf(url)); });
    require(plain == secret && (!plain || B64::decodeURL(B64::encodeURL(url)) == url));
    accepts([&] { require(Hex::decode(hexString(Hex::decode(text))) == Hex::decode(text)); });
    return 0;
}
