#include "KRCrypto/MasterKey.hpp"
#include "KRCrypto/MetaJSON.hpp"
#include "KRCrypto/UnicodeText.hpp"
#include "fuzz/KRCrypto/Fuzzing.hpp"

#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>

using namespace KRCrypto;
using namespace KRCrypto::Fuzzing;

namespace {

std::string decomposed(const std::string& text) {
    UErrorCode status = U_ZERO_ERROR;
    std::string result;
    icu::StringByteSink<std::string> sink(&result);
    icu::Normalizer2::getNFDInstance(status)->normalizeUTF8(0, text, sink, nullptr, status);
    require(U_SUCCESS(status));
    return result;
}

} // namespace

// Metadata that decodes has one canonical text, and a name whose index is the same however it is composed and
// cased.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    accepts([&] {
        const EntryMeta meta = MetaJSON::decode({data, size});
        const Bytes canonical = MetaJSON::encode(meta);
        require(MetaJSON::encode(MetaJSON::decode(canonical)) == canonical);
        const std::string input = MasterKey::blindIndexInput(meta.name());
        require(MasterKey::blindIndexInput(toNFC(meta.name())) == input);
        require(MasterKey::blindIndexInput(decomposed(meta.name())) == input);
        require(toLower(input) == input);
    });
    return 0;
}
