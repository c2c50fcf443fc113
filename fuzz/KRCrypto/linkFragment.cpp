#include "KRCrypto/DropCrypto.hpp"
#include "KRCrypto/LinkKey.hpp"
#include "fuzz/KRCrypto/Fuzzing.hpp"

using namespace KRCrypto;
using namespace KRCrypto::Fuzzing;

// A fragment that is accepted has one usual spelling; a label never breaks a drop fragment.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = asText({data, size});
    accepts([&] {
        const LinkKey link = LinkKey::fromFragment(text);
        require(link.fragment().size() == 43 && LinkKey::fromFragment(link.fragment().text()) == link);
    });
    accepts([&] {
        const std::string fragment = DropCrypto::fragment(key, text);
        require(fragment.size() == 43 || fragment[43] == '.');
    });
    return 0;
}
