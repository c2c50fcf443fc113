#include "KRCrypto/QuickSendJSON.hpp"
#include "fuzz/KRCrypto/Fuzzing.hpp"

using namespace KRCrypto;
using namespace KRCrypto::Fuzzing;

// An item that decodes comes back from its own text; any UTF-8 text makes an item.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ByteView input(data, size);
    accepts([&] {
        const QuickSendPayload payload = QuickSendJSON::decode(input);
        require(QuickSendJSON::decode(QuickSendJSON::encode(payload)) == payload);
    });
    accepts([&] {
        const auto payload = QuickSendPayload::fromText(asText(input), "t");
        require(QuickSendJSON::decode(QuickSendJSON::encode(payload)) == payload);
    });
    return 0;
}
