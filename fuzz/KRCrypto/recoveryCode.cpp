#include "KRCrypto/RecoveryCode.hpp"

#include "fuzz/KRCrypto/Fuzzing.hpp"

using namespace KRCrypto;
using namespace KRCrypto::Fuzzing;

// A code that parses formats to one that gives the same secret.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ByteView input(data, size);
    accepts([&] {
        const SecretBytes secret = parseRecoveryCode(asText(input));
        require(secret.size() == 32 && parseRecoveryCode(formatRecoveryCode(secret).text()) == secret);
    });
    const SecretBytes code = formatRecoveryCode(input);
    require(accepts([&] { parseRecoveryCode(code.text()); }) == (size == 32));
    return 0;
}
