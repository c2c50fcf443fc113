#include "KRCrypto/MasterKey.hpp"
#include "KRCrypto/MetaJSON.hpp"
#include "fuzz/KRCrypto/Fuzzing.hpp"

using namespace KRCrypto;
using namespace KRCrypto::Fuzzing;

// Metadata that decodes has one canonical text, and a name any client can index.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    accepts([&] {
        const EntryMeta meta = MetaJSON::decode({data, size});
        const Bytes canonical = MetaJSON::encode(meta);
        require(MetaJSON::encode(MetaJSON::decode(canonical)) == canonical);
        const std::string input = MasterKey::blindIndexInput(meta.name());
        require(MasterKey::blindIndexInput(meta.name()) == input);
        accepts([&] { MetaJSON::validate(meta); });
    });
    return 0;
}
