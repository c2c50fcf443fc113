#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/DropCrypto.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "KRCrypto/UnicodeText.hpp"
#include "fuzz/KRCrypto/Fuzzing.hpp"

using namespace KRCrypto;
using namespace KRCrypto::Fuzzing;

namespace {

void requireClean(const FileMeta& meta) {
    require(!meta.name.empty() && meta.name.size() <= 255 && meta.name != "." && meta.name != "..");
    require(meta.name.find_first_of(std::string_view("/\\\0", 3)) == std::string::npos);
    require(toNFC(meta.name) == meta.name && DropCrypto::sanitizeMeta(meta) == meta);
    require(meta.mime.size() <= 127 && meta.size >= 0);
}

} // namespace

// The input as all three parts of an item, and as the metadata a sender really sealed: what opens is clean.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const PairingKeyPair owner = PairingKeyPair::fromPrivateKeyBytes(key);
    static const PairingKeyPair sender = PairingKeyPair::fromPrivateKeyBytes(Bytes(32, 5));
    static const SecretBytes dropKey =
        DropCrypto::dropKey(sender.privateKey(), owner.publicKey(), sender.publicKey(), owner.publicKey());
    static const Bytes wrapped = seal(dropKey, key, CryptoContext::dropWrap);

    const ByteView input(data, size);
    require(!accepts(
        [&] { DropCrypto::openItem(owner, input.first(std::min<std::size_t>(size, 32)), input, input); }));
    accepts([&] {
        const Bytes meta = seal(dropKey, input, CryptoContext::dropMeta);
        requireClean(DropCrypto::openItem(owner, sender.publicKey(), wrapped, meta).meta);
    });
    accepts([&] {
        const std::string label = DropCrypto::sanitizeLabel(asText(input));
        require(DropCrypto::sanitizeLabel(label) == label);
    });
    accepts(
        [&] { requireClean(DropCrypto::sanitizeMeta(FileMeta(std::string(asText(input)), "a/b", 0, ""))); });
    return 0;
}
