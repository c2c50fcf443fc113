#include "KRCrypto/SealedBox.hpp"
#include "fuzz/KRCrypto/Fuzzing.hpp"

using namespace KRCrypto;
using namespace KRCrypto::Fuzzing;

// The input as a box, which cannot open; as a plaintext, which comes back; and as flips of a box, which do
// not open.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ByteView input(data, size);
    require(!accepts([&] { open(key, input, "label"); }));
    Bytes box = seal(key, input, "label");
    const Bytes plaintext = open(key, box, "label");
    require(std::equal(plaintext.begin(), plaintext.end(), input.begin(), input.end()));
    if (size > 0) {
        box[input[0] % box.size()] ^= static_cast<std::uint8_t>(1U << (input[0] % 8U));
        require(!accepts([&] { open(key, box, "label"); }));
    }
    return 0;
}
